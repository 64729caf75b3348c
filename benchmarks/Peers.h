#pragma once

#include <ITransferHandler.h>

#include <cstddef>
#include <memory>
#include <string>

// The work that the agent is measured against: the same transfer with nothing around it. Each
// returns how many body bytes it received, 0 after a failure.

// libcurl with the options that the libcurl handler sets for a streamed GET: chunks are counted.
std::size_t StreamWithLibcurl(const std::string& url);

// The same with each chunk copied into a vector of its own, which a client of the agent receives.
std::size_t StreamWithLibcurlInVectors(const std::string& url);

// The same with each header line and each chunk handed over as the agent wants them of a handler,
// which checks nothing.
std::unique_ptr<VORTAN_MW::ITransferHandlerFactory> MakePlainHandlerFactory();

// The same as the first for a body that is wanted whole: chunks are appended to a vector.
std::size_t DownloadWithLibcurl(const std::string& url);

// libcurl with the options that the curl wrapper's stand-in sets for the vendor handler's streamed
// GET: chunks are counted.
std::size_t StreamLikeTheWrapper(const std::string& url);

// libcurl with the options that the libcurl handler sets for a PUT: sends the body from where it
// is, and returns its size.
std::size_t UploadWithLibcurl(const std::string& url, const std::string& body);

// The same for a POST, which goes out chunked.
std::size_t PostWithLibcurl(const std::string& url, const std::string& body);

// read(2) of a file into a vector of the file's size.
std::size_t ReadIntoVector(const std::string& path);
