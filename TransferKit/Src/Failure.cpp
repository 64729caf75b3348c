#include "Failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

namespace VORTAN_MW {
namespace KIT {

namespace {

struct Row
{
    CURLcode code;
    Failure failure;
};

// As in docs/kit.md.
constexpr Row Rows[] = {
    {CURLE_OK, {Category::Success, false}},
    {CURLE_COULDNT_RESOLVE_PROXY, {Category::NameNotFound, true}},
    {CURLE_COULDNT_RESOLVE_HOST, {Category::NameNotFound, true}},
    {CURLE_COULDNT_CONNECT, {Category::NotConnected, true}},
    {CURLE_PROXY, {Category::NotConnected, true}},
    {CURLE_OPERATION_TIMEDOUT, {Category::TimedOut, true}},
    {CURLE_SSL_CONNECT_ERROR, {Category::TlsFailed, true}},
    {CURLE_PEER_FAILED_VERIFICATION, {Category::TlsNotTrusted, false}},
    {CURLE_SSL_PINNEDPUBKEYNOTMATCH, {Category::TlsNotTrusted, false}},
    {CURLE_SSL_ISSUER_ERROR, {Category::TlsNotTrusted, false}},
    {CURLE_SSL_CLIENTCERT, {Category::TlsFailed, false}},
    {CURLE_SSL_CERTPROBLEM, {Category::TlsFailed, false}},
    {CURLE_SSL_CACERT_BADFILE, {Category::TlsFailed, false}},
    {CURLE_SSL_CIPHER, {Category::TlsFailed, false}},
    {CURLE_PARTIAL_FILE, {Category::ConnectionLost, true}},
    {CURLE_GOT_NOTHING, {Category::ConnectionLost, true}},
    {CURLE_SEND_ERROR, {Category::ConnectionLost, true}},
    {CURLE_RECV_ERROR, {Category::ConnectionLost, true}},
    {CURLE_SSL_SHUTDOWN_FAILED, {Category::ConnectionLost, true}},
    {CURLE_UNSUPPORTED_PROTOCOL, {Category::InvalidResponse, false}},
    {CURLE_WEIRD_SERVER_REPLY, {Category::InvalidResponse, false}},
    {CURLE_BAD_CONTENT_ENCODING, {Category::InvalidResponse, false}},
    {CURLE_FILESIZE_EXCEEDED, {Category::TooLarge, false}},
    {CURLE_URL_MALFORMAT, {Category::InvalidRequest, false}},
    {CURLE_OUT_OF_MEMORY, {Category::OutOfMemory, false}},
};

constexpr std::array<long, 7> PassingStatuses = {408, 425, 429, 500, 502, 503, 504};

const char* PhraseOf(Category category)
{
    switch (category) {
        case Category::Success:
            return "The transfer succeeded";
        case Category::InvalidRequest:
            return "The request is invalid";
        case Category::NameNotFound:
            return "The host's name could not be resolved";
        case Category::ConnectionRefused:
            return "The host refused the connection";
        case Category::NotConnected:
            return "The connection could not be made";
        case Category::TlsNotTrusted:
            return "The server's certificate or key is not trusted";
        case Category::TlsFailed:
            return "The TLS handshake failed";
        case Category::TimedOut:
            return "The transfer took longer than its policy allows";
        case Category::ConnectionLost:
            return "The connection broke before the response was whole";
        case Category::InvalidResponse:
            return "The server's response is invalid";
        case Category::TooLarge:
            return "The response is larger than the policy allows";
        case Category::RedirectRefused:
            return "A redirect leads where the policy forbids to go";
        case Category::Changed:
            return "The body broke off, and the server cannot continue the same version";
        case Category::UploadFailed:
            return "The file to upload could not be read whole";
        case Category::Cancelled:
            return "The transfer was cancelled";
        case Category::ClientStopped:
            return "The client stopped the transfer";
        case Category::OutOfMemory:
            return "There was not enough memory for the transfer";
        case Category::FileFailed:
            return "The file could not be written";
        case Category::Busy:
            return "The file is being written by another transfer";
        case Category::WrongHash:
            return "The body's SHA-256 is not the expected one";
        case Category::HandlerFailed:
            return "The request's handler failed";
        case Category::NoThread:
            return "No thread could be started for the transfer";
        case Category::HttpStatus:
        case Category::Internal:
            break;
    }
    return "libcurl failed for an unexpected reason";
}

}  // namespace

Failure FailureOf(CURLcode code, long systemError)
{
    if (code == CURLE_COULDNT_CONNECT && systemError == ECONNREFUSED) {
        return {Category::ConnectionRefused, true};
    }
    const auto* const row = std::find_if(std::begin(Rows), std::end(Rows),
                                         [code](const Row& each) { return each.code == code; });
    return row == std::end(Rows) ? Failure() : row->failure;
}

bool MayPass(long status)
{
    return std::find(PassingStatuses.begin(), PassingStatuses.end(), status) !=
           PassingStatuses.end();
}

std::string SentenceOf(Category category, const std::string& host, long status,
                       const std::string& detail)
{
    std::string sentence = category == Category::HttpStatus
                               ? "The server answered with HTTP status " + std::to_string(status)
                               : PhraseOf(category);
    if (!detail.empty()) {
        sentence += ": " + detail;
    }
    if (!host.empty()) {
        sentence += " (host " + host + ")";
    }
    return sentence + ".";
}

}  // namespace KIT
}  // namespace VORTAN_MW
