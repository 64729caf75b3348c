#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "base/Output.h"
#include "base/UsageError.h"
#include "options/Arguments.h"
#include "options/Handler.h"
#include "options/Help.h"

using namespace VORTAN_TRANSFER;

namespace {

using HttpMethod = VORTAN_MW::ITransferHandler::Configuration::HttpMethod;

std::variant<Arguments, Information> ParseAny(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "vortan-transfer");
    return ParseArguments(static_cast<int>(arguments.size()), arguments.data());
}

Arguments Parse(const std::vector<const char*>& arguments)
{
    return std::get<Arguments>(ParseAny(arguments));
}

std::string RefusalOf(const std::vector<const char*>& arguments)
{
    try {
        ParseAny(arguments);
    } catch (const UsageError& error) {
        return error.what();
    }
    return "accepted";
}

std::vector<std::string> LinesOfHelp()
{
    std::istringstream help(std::get<Information>(ParseAny({"--help"})));
    std::vector<std::string> lines;
    for (std::string line; std::getline(help, line);) {
        lines.push_back(line);
    }
    return lines;
}

constexpr const char* Url = "http://localhost/a";

}  // namespace

TEST(Arguments, ASourceAloneIsFetchedSegmentedToStandardOutput)
{
    const Arguments arguments = Parse({Url});
    ASSERT_EQ(arguments.jobs.size(), 1U);
    EXPECT_EQ(arguments.jobs[0].source.url, Url);
    EXPECT_EQ(arguments.jobs[0].target, "-");
    EXPECT_EQ(arguments.request.method, HttpMethod::EhttpGet);
    EXPECT_TRUE(arguments.request.failOnError);
    EXPECT_TRUE(arguments.request.headers.empty());
    EXPECT_TRUE(arguments.request.requestBody.empty());
    EXPECT_FALSE(arguments.request.randomDelay);
    EXPECT_FALSE(arguments.request.fixedDelay);
    EXPECT_TRUE(arguments.segmented);
    EXPECT_FALSE(arguments.includeHeader);
    EXPECT_FALSE(arguments.quiet);
    EXPECT_FALSE(arguments.verbose);
}

TEST(Arguments, VendorOptionsReachTheRequest)
{
    const auto request = Parse({"--handler",
                                "vendor",
                                "--http-version",
                                "2",
                                "--self-signed",
                                "--timeout",
                                "7:8",
                                "--verbose-wrapper",
                                "--option20",
                                "0",
                                "--option21",
                                "-1",
                                "--option27",
                                "27",
                                "--option30",
                                "3",
                                "--option31",
                                "31",
                                "--option32",
                                "32",
                                Url})
                             .request;
    EXPECT_EQ(request.httpVersion,
              VORTAN_MW::ITransferHandler::Configuration::HttpVersion::Eversion20);
    EXPECT_TRUE(request.allowSelfSignedCertificates);
    EXPECT_EQ(request.timeoutArg1, 7);
    EXPECT_EQ(request.timeoutArg2, 8);
    EXPECT_TRUE(request.verbose);
    EXPECT_EQ(request.wrapperOption20, 0);
    EXPECT_EQ(request.wrapperOption21, -1);
    EXPECT_EQ(request.wrapperOption27, 27);
    EXPECT_EQ(request.wrapperOption30, 3);
    EXPECT_EQ(request.wrapperOption31, 31);
    EXPECT_EQ(request.wrapperOption32, 32);
    EXPECT_FALSE(request.halvordConfig);
}

TEST(Arguments, EachHttpVersionHasItsName)
{
    using HttpVersion = VORTAN_MW::ITransferHandler::Configuration::HttpVersion;
    const auto versionOf = [](const char* name) {
        return Parse({"--handler", "vendor", "--http-version", name, Url}).request.httpVersion;
    };
    EXPECT_EQ(versionOf("1.0"), HttpVersion::Eversion10);
    EXPECT_EQ(versionOf("1.1"), HttpVersion::Eversion11);
    EXPECT_EQ(versionOf("2"), HttpVersion::Eversion20);
}

TEST(Arguments, AVendorFlagIsNotTakenForAnother)
{
    const auto selfSigned = Parse({"--handler", "vendor", "--self-signed", Url}).request;
    EXPECT_TRUE(selfSigned.allowSelfSignedCertificates);
    EXPECT_FALSE(selfSigned.verbose);
    const auto verbose = Parse({"--handler", "vendor", "--verbose-wrapper", Url}).request;
    EXPECT_FALSE(verbose.allowSelfSignedCertificates);
    EXPECT_TRUE(verbose.verbose);
}

TEST(Arguments, AVendorValueMayBeAnyNumberOfItsType)
{
    const std::string least = std::to_string(std::numeric_limits<long>::min());
    const std::string greatest = std::to_string(std::numeric_limits<long>::max());
    const auto request = Parse({"--handler", "vendor", "--option20", least.c_str(), "--option21",
                                greatest.c_str(), "--timeout", "0:2147483647", Url})
                             .request;
    EXPECT_EQ(request.wrapperOption20, std::numeric_limits<long>::min());
    EXPECT_EQ(request.wrapperOption21, std::numeric_limits<long>::max());
    EXPECT_EQ(request.timeoutArg1, 0);
    EXPECT_EQ(request.timeoutArg2, 2147483647);
}

TEST(Arguments, WithoutVendorOptionsTheRequestKeepsItsDefaults)
{
    const auto request = Parse({"--handler", "vendor", Url}).request;
    const VORTAN_MW::ITransferHandler::Configuration defaults;
    EXPECT_EQ(request.httpVersion, defaults.httpVersion);
    EXPECT_EQ(request.timeoutArg1, defaults.timeoutArg1);
    EXPECT_EQ(request.timeoutArg2, defaults.timeoutArg2);
    EXPECT_EQ(request.wrapperOption20, defaults.wrapperOption20);
    EXPECT_EQ(request.wrapperOption21, defaults.wrapperOption21);
    EXPECT_EQ(request.wrapperOption27, defaults.wrapperOption27);
    EXPECT_EQ(request.wrapperOption30, defaults.wrapperOption30);
    EXPECT_EQ(request.wrapperOption31, defaults.wrapperOption31);
    EXPECT_EQ(request.wrapperOption32, defaults.wrapperOption32);
    EXPECT_FALSE(request.allowSelfSignedCertificates);
    EXPECT_FALSE(request.verbose);
}

TEST(Arguments, AResourceTakesThePlaceOfTheSource)
{
    const Arguments arguments = Parse({"--handler", "vendor", "--resource", "/a/b", "--query",
                                       "k=v=w", "--query", "empty=", "-O"});
    ASSERT_EQ(arguments.jobs.size(), 1U);
    EXPECT_EQ(arguments.jobs[0].source.text, "/a/b");
    EXPECT_EQ(arguments.jobs[0].target, "b");
    ASSERT_TRUE(arguments.request.halvordConfig);
    EXPECT_EQ(arguments.request.halvordConfig->resource, "/a/b");
    const std::vector<std::pair<std::string, std::string>> expected = {{"k", "v=w"}, {"empty", ""}};
    EXPECT_EQ(arguments.request.halvordConfig->queryParameters, expected);
}

TEST(Arguments, VendorOptionsThatMakeNoSenseAreRefused)
{
    EXPECT_EQ(RefusalOf({"--resource", "/a"}), "--resource: only with --handler vendor");
    EXPECT_EQ(RefusalOf({"--handler", "curl", "--resource", "/a"}),
              "--resource: only with --handler vendor");
    EXPECT_EQ(RefusalOf({"--handler", "file", "--resource", "/a"}),
              "--resource: only with --handler vendor");
    EXPECT_EQ(RefusalOf({"--option30", "1", Url}), "--option30: only with --handler vendor");
    EXPECT_EQ(RefusalOf({"--self-signed", Url}), "--self-signed: only with --handler vendor");
    EXPECT_EQ(RefusalOf({"--handler", "vendor", "--query", "a=b", Url}),
              "--query: needs a --resource to be a part of");
    const auto refusalOf = [](std::vector<const char*> options) {
        options.insert(options.begin(), {"--handler", "vendor"});
        return RefusalOf(options);
    };
    EXPECT_EQ(refusalOf({"--resource", "/a", "--query", "a"}), "--query: 'a' is no KEY=VALUE");
    EXPECT_EQ(refusalOf({"--resource", "/a", "--query", "=b"}), "--query: '=b' is no KEY=VALUE");
    EXPECT_EQ(refusalOf({"--resource", ""}), "--resource: is empty");
    EXPECT_EQ(refusalOf({"--resource", "/a", Url}),
              "--resource: takes the place of a source, 'http://localhost/a' cannot be asked, too");
    EXPECT_EQ(refusalOf({"--http-version", "3", Url}),
              "--http-version: '3' is none of 1.0, 1.1, 2");
    EXPECT_EQ(refusalOf({"--timeout", "3", Url}), "--timeout: '3' is no A:B");
    EXPECT_EQ(refusalOf({"--timeout", "-1:3", Url}),
              "--timeout: '-1' is no whole number from 0 up");
    EXPECT_EQ(refusalOf({"--timeout", "3:2147483648", Url}),
              "--timeout: '2147483648' is above 2147483647");
    EXPECT_EQ(refusalOf({"--timeout", "3:x", Url}), "--timeout: 'x' is no whole number from 0 up");
    EXPECT_EQ(refusalOf({"--option27", "x", Url}), "--option27: 'x' is no whole number");
    EXPECT_EQ(refusalOf({"--option27", "", Url}), "--option27: '' is no whole number");
}

TEST(Arguments, ANumberThatFitsNoTypeIsOutOfItsBoundsOnItsOwnSide)
{
    const std::string huge(30, '9');
    const std::string least = std::to_string(std::numeric_limits<long>::min());
    const std::string greatest = std::to_string(std::numeric_limits<long>::max());
    const auto refusalOf = [](const char* option, const std::string& value) {
        return RefusalOf({"--handler", "vendor", option, value.c_str(), Url});
    };
    EXPECT_EQ(refusalOf("--option30", huge), "--option30: '" + huge + "' is above " + greatest);
    EXPECT_EQ(refusalOf("--option30", "-" + huge),
              "--option30: '-" + huge + "' is no whole number from " + least + " up");
    EXPECT_EQ(refusalOf("--timeout", "-" + huge + ":1"),
              "--timeout: '-" + huge + "' is no whole number from 0 up");
    EXPECT_EQ(refusalOf("--fixed-delay", "-" + huge),
              "--fixed-delay: '-" + huge + "' is no whole number from 0 up");
}

TEST(Arguments, AFlagIsNotSetByBeingDenied)
{
    for (const char* const flag :
         {"--quiet=false", "--no-fail=0", "--self-signed=false", "--verbose-wrapper=no"}) {
        EXPECT_NE(RefusalOf({"--handler", "vendor", flag, Url}), "accepted") << flag;
    }
}

TEST(Arguments, EachFlagIsTaken)
{
    EXPECT_FALSE(Parse({"--plain", Url}).segmented);
    EXPECT_TRUE(Parse({"--segmented", Url}).segmented);
    EXPECT_FALSE(Parse({"--no-fail", Url}).request.failOnError);
    EXPECT_TRUE(Parse({"-i", Url}).includeHeader);
    EXPECT_TRUE(Parse({"--include", Url}).includeHeader);
    EXPECT_TRUE(Parse({"-q", Url}).quiet);
    EXPECT_TRUE(Parse({"-v", Url}).verbose);
}

TEST(Arguments, TheMethodIsGetWithoutDataAndPostWithIt)
{
    EXPECT_EQ(Parse({Url}).request.method, HttpMethod::EhttpGet);
    EXPECT_EQ(Parse({"-d", "x", Url}).request.method, HttpMethod::EhttpPost);
    EXPECT_EQ(Parse({"-d", "x", "-X", "PUT", Url}).request.method, HttpMethod::EhttpPut);
    EXPECT_EQ(Parse({"--method", "head", Url}).request.method, HttpMethod::EhttpHead);
}

TEST(Arguments, AHeadRequestYieldsItsHeader)
{
    EXPECT_TRUE(Parse({"-X", "HEAD", Url}).includeHeader);
}

TEST(Arguments, AnUnknownMethodIsRefused)
{
    EXPECT_EQ(RefusalOf({"-X", "DELETE", Url}),
              "--method: 'DELETE' is none of GET, HEAD, POST, PUT");
}

TEST(Arguments, DataAndMethodMustFit)
{
    EXPECT_EQ(RefusalOf({"-X", "GET", "-d", "x", Url}), "--data: only POST and PUT send data");
    EXPECT_EQ(RefusalOf({"-X", "HEAD", "-d", "x", Url}), "--data: only POST and PUT send data");
    EXPECT_EQ(RefusalOf({"-X", "POST", Url}),
              "--method: POST and PUT need data to send, give it with --data");
    EXPECT_EQ(RefusalOf({"-X", "PUT", Url}),
              "--method: POST and PUT need data to send, give it with --data");
    EXPECT_EQ(RefusalOf({"-d", "", Url}), "--data: is empty, and POST cannot send nothing");
    EXPECT_EQ(Parse({"-X", "PUT", "-d", "", Url}).request.requestBody, "");
}

TEST(Arguments, AFileCanOnlyBeFetched)
{
    EXPECT_EQ(RefusalOf({"-d", "x", "/a"}), "'/a': a file can only be fetched");
    EXPECT_EQ(RefusalOf({"-X", "HEAD", "/a"}), "'/a': a file can only be fetched");
    EXPECT_EQ(RefusalOf({"-X", "GET", "/a"}), "accepted");
}

TEST(Arguments, DataIsTakenLiterally)
{
    for (const char* const data :
         {"a=b&c", "[1,2]", "{}", "{\"a\": [1]}", "-x", "--", " ", "a@b"}) {
        EXPECT_EQ(Parse({"-d", data, Url}).request.requestBody, data);
    }
    EXPECT_EQ(Parse({"--data=[1,2]", Url}).request.requestBody, "[1,2]");
}

TEST(Arguments, AMissingDataFileIsRefusedWithItsCause)
{
    EXPECT_EQ(RefusalOf({"-d", "@/nowhere/x", Url}),
              "--data: '@/nowhere/x': No such file or directory");
    EXPECT_EQ(RefusalOf({"-d", "@/", Url}), "--data: '@/': Is a directory");
}

TEST(Arguments, HeadersKeepTheirOrderAndLoseBlanksAround)
{
    const auto headers =
        Parse({"-H", "B: 2", "--header", "A:1:2 ", "-H", "Expect:", Url}).request.headers;
    const decltype(headers) expected = {{"B", "2"}, {"A", "1:2"}, {"Expect", ""}};
    EXPECT_EQ(headers, expected);
}

TEST(Arguments, BracketsInAHeaderMeanNothing)
{
    const auto headers = Parse({"-H", "[a:1,b:2]", Url}).request.headers;
    const decltype(headers) expected = {{"[a", "1,b:2]"}};
    EXPECT_EQ(headers, expected);
}

TEST(Arguments, AHeaderOptionTakesOneValueOnly)
{
    EXPECT_EQ(Parse({"-H", "A: 1", Url}).jobs.size(), 1U);
}

TEST(Arguments, AHeaderThatIsNoneIsRefused)
{
    EXPECT_EQ(RefusalOf({"-H", "nocolon", Url}), "--header: 'nocolon' has no colon");
    for (const char* const header : {": x", "a b: c", "a : c", "a: b\r\nc: d", "a\x01: b"}) {
        EXPECT_NE(RefusalOf({"-H", header, Url}).find("is no 'NAME: VALUE'"), std::string::npos)
            << header;
    }
}

TEST(Arguments, ADelayMakesTheTransferPlain)
{
    const Arguments random = Parse({"--random-delay", "1:2", Url});
    EXPECT_FALSE(random.segmented);
    ASSERT_TRUE(random.request.randomDelay);
    EXPECT_EQ(random.request.randomDelay->min, 1U);
    EXPECT_EQ(random.request.randomDelay->max, 2U);

    const Arguments fixed = Parse({"--fixed-delay", "9223372036854775807", Url});
    EXPECT_FALSE(fixed.segmented);
    EXPECT_EQ(fixed.request.fixedDelay.value(), 9223372036854775807);
}

TEST(Arguments, ADelayOfNothingIsADelay)
{
    EXPECT_EQ(Parse({"--random-delay", "0:0", Url}).request.randomDelay->max, 0U);
    EXPECT_EQ(Parse({"--fixed-delay", "0", Url}).request.fixedDelay.value(), 0);
}

TEST(Arguments, ADelayThatIsNoneIsRefused)
{
    EXPECT_EQ(RefusalOf({"--random-delay", "2:1", Url}), "--random-delay: '2:1' has MIN above MAX");
    EXPECT_EQ(RefusalOf({"--random-delay", "1", Url}), "--random-delay: '1' is no MIN:MAX");
    for (const char* const delay : {"-1:2", "1:-2", ":", "1:", ":1", "1:2:3", "a:b", "1.5:2"}) {
        EXPECT_NE(RefusalOf({"--random-delay", delay, Url}).find("whole number"), std::string::npos)
            << delay;
    }
    for (const char* const delay : {"-1", "", "x", "1s", " 1", "+1"}) {
        EXPECT_NE(RefusalOf({"--fixed-delay", delay, Url}).find("whole number"), std::string::npos)
            << delay;
    }
}

TEST(Arguments, ADelayTooLongForTheLibraryIsRefused)
{
    EXPECT_EQ(RefusalOf({"--random-delay", "0:4294967", Url}), "accepted");
    EXPECT_EQ(RefusalOf({"--random-delay", "0:4294968", Url}),
              "--random-delay: '4294968' is above 4294967");
    EXPECT_EQ(RefusalOf({"--random-delay", "0:99999999999", Url}),
              "--random-delay: '99999999999' is above 4294967");
    EXPECT_EQ(RefusalOf({"--fixed-delay", "9223372036854775808", Url}),
              "--fixed-delay: '9223372036854775808' is above 9223372036854775807");
}

TEST(Arguments, WhatContradictsIsRefused)
{
    EXPECT_EQ(RefusalOf({"--plain", "--segmented", Url}),
              "--segmented: cannot be combined with --plain");
    EXPECT_EQ(RefusalOf({"--segmented", "--fixed-delay", "1", Url}),
              "--segmented: cannot be combined with --fixed-delay");
    EXPECT_EQ(RefusalOf({"--segmented", "--random-delay", "1:1", Url}),
              "--segmented: cannot be combined with --random-delay");
    EXPECT_EQ(RefusalOf({"--fixed-delay", "1", "--random-delay", "1:1", Url}),
              "--random-delay: cannot be combined with --fixed-delay");
    EXPECT_EQ(RefusalOf({"-o", "a", "-O", Url}), "--output: cannot be combined with --remote-name");
}

TEST(Arguments, AnOptionThatTakesOneValueTakesNoTwo)
{
    EXPECT_NE(RefusalOf({"-o", "a", "-o", "b", Url}), "accepted");
    EXPECT_NE(RefusalOf({"-d", "a", "-d", "b", Url}), "accepted");
}

TEST(Arguments, AnUnknownOptionIsRefused)
{
    EXPECT_NE(RefusalOf({"--unknown", Url}).find("--unknown"), std::string::npos);
    EXPECT_NE(RefusalOf({"-z", Url}).find("-z"), std::string::npos);
}

TEST(Arguments, ARefusalNeverBreaksTheLine)
{
    EXPECT_EQ(RefusalOf({"--un\nknown\033[2J", Url}).find_first_of("\n\033"), std::string::npos);
    EXPECT_EQ(RefusalOf({"-X", "\n\033[2J", Url}).find_first_of("\n\033"), std::string::npos);
}

TEST(Arguments, ASourceIsNeeded)
{
    EXPECT_EQ(RefusalOf({}), "no source is given");
    EXPECT_EQ(RefusalOf({"-q"}), "no source is given");
    EXPECT_EQ(RefusalOf({""}), "a source is empty");
}

TEST(Arguments, AfterTwoDashesEverythingIsASource)
{
    const Arguments arguments = Parse({"--", "-q"});
    EXPECT_EQ(arguments.jobs.at(0).source.url, "-q");
    EXPECT_FALSE(arguments.quiet);
}

TEST(Arguments, ANameInBracketsIsNeverTakenApart)
{
    EXPECT_EQ(RefusalOf({"[a,b]"}), "begin a name in brackets with ./");
    EXPECT_EQ(Parse({"./[a,b]"}).jobs.at(0).source.url, "./[a,b]");
    EXPECT_EQ(Parse({"{}"}).jobs.at(0).source.url, "{}");
}

TEST(Arguments, TheOutputIsTheTarget)
{
    EXPECT_EQ(Parse({"-o", "x", Url}).jobs.at(0).target, "x");
    EXPECT_EQ(Parse({"-o", "-", Url}).jobs.at(0).target, "-");
    EXPECT_EQ(Parse({"--output=x", Url}).jobs.at(0).target, "x");
    EXPECT_EQ(RefusalOf({"-o", "", Url}), "--output: is empty");
    EXPECT_TRUE(Output::IsStandardOutput("-"));
    EXPECT_TRUE(Output::IsStandardOutput("/dev/stdout"));
    EXPECT_FALSE(Output::IsStandardOutput("./-"));
}

TEST(Arguments, SeveralSourcesNeedNamesOfTheirOwn)
{
    const std::string refusal =
        "several sources cannot share one output, use -O to name files after them";
    EXPECT_EQ(RefusalOf({Url, "/b"}), refusal);
    EXPECT_EQ(RefusalOf({"-o", "x", Url, "/b"}), refusal);

    const Arguments arguments = Parse({"-O", Url, "/b"});
    ASSERT_EQ(arguments.jobs.size(), 2U);
    EXPECT_EQ(arguments.jobs[0].target, "a");
    EXPECT_EQ(arguments.jobs[1].target, "b");
}

TEST(Arguments, TwoSourcesOfOneNameAreRefused)
{
    EXPECT_EQ(RefusalOf({"-O", "/x/a", "/y/b", "/z/a"}),
              "'/z/a': another source is to be written to 'a' already");
    EXPECT_NE(RefusalOf({"-O", "http://localhost/%61", "/y/a"}), "accepted");
}

TEST(Arguments, AFileNamedLikeStandardOutputIsAFile)
{
    EXPECT_EQ(Parse({"-O", "http://localhost/-"}).jobs.at(0).target, "./-");
}

TEST(Arguments, NothingIsToldUnlessAskedFor)
{
    const Arguments arguments = Parse({Url});
    EXPECT_FALSE(arguments.json);
    EXPECT_FALSE(arguments.trace.file);
    EXPECT_FALSE(arguments.trace.plot);
}

TEST(Arguments, NothingIsWrittenToTwice)
{
    const std::string end = " already, name another file";
    EXPECT_EQ(RefusalOf({"--trace", "", Url}), "--trace: is empty");
    EXPECT_EQ(RefusalOf({"--trace", "/dev/stdout", Url}),
              "--trace: standard output has the body" + end);
    EXPECT_EQ(RefusalOf({"--trace", "./x/../y", "-o", "y", Url}),
              "--trace: './x/../y' has the body" + end);
    EXPECT_EQ(RefusalOf({"--json", "--trace", "-", "-O", Url}),
              "--trace: standard output has --json" + end);
    EXPECT_EQ(Parse({"--trace", "-", "-O", Url}).trace.file, "-");
    EXPECT_EQ(Parse({"--trace", "./-", Url}).trace.file, "./-");
    EXPECT_EQ(RefusalOf({"--trace", "t", "--trace-plot", "t", Url}),
              "--trace-plot: 't' has --trace" + end);
    EXPECT_EQ(Parse({"--trace-plot", "p", Url}).trace.plot, "p");
}

TEST(Arguments, TheHandlerCanBeGiven)
{
    EXPECT_EQ(Parse({"--handler", "file", Url}).jobs.at(0).source.handler->name, "file");
    EXPECT_EQ(Parse({"--handler", "curl", "a"}).jobs.at(0).source.handler->name, "curl");
    const std::string refusal = RefusalOf({"--handler", "ftp", Url});
    EXPECT_NE(refusal.find("'ftp' is none of curl, file, vendor"), std::string::npos) << refusal;
}

TEST(Arguments, HelpNamesEveryExitStatus)
{
    const auto help = std::get<Information>(ParseAny({"--help"}));
    for (const char* const status : {"\n  0 ", "\n  1 ", "\n  2 ", "\n  3 ", "\n  130 "}) {
        EXPECT_NE(help.find(status), std::string::npos) << status;
    }
}

TEST(Arguments, HelpFitsIntoEightyColumns)
{
    for (const std::string& line : LinesOfHelp()) {
        EXPECT_LE(line.size(), 80U) << line;
        EXPECT_EQ(line.find('\t'), std::string::npos) << line;
    }
}

TEST(Arguments, HelpHasEachOptionAndNoOther)
{
    std::vector<std::string> shown;
    for (const std::string& line : LinesOfHelp()) {
        const std::size_t begin = line.find_first_not_of(' ');
        if (begin == 2 || begin == 6) {
            if (line[begin] == '-') {
                shown.push_back(line.substr(begin, line.find("  ", begin) - begin));
            }
        }
    }
    std::vector<std::string> known = OptionForms();
    std::sort(known.begin(), known.end());
    std::sort(shown.begin(), shown.end());
    EXPECT_GT(known.size(), 20U);
    EXPECT_EQ(shown, known);
}

TEST(Arguments, HelpNamesEveryHandler)
{
    EXPECT_NE(std::string(HelpText).find(" " + HandlerNames() + "\n"), std::string::npos);
}

TEST(Arguments, TheVersionNamesTheProgram)
{
    EXPECT_EQ(std::get<Information>(ParseAny({"--version"})).find("vortan-transfer "), 0U);
}
