// The file reader with a scripted accessor in place of the file system.

#include <ThreadSafeFileSystemAccessor.h>
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "FileReaderFactory.h"

namespace {

using testing::ElementsAre;
using VORTAN_MW::FileReaderFactory;
using VORTAN_MW::ITransferHandler;
using Bytes = ITransferHandler::Bytes;

// What the accessor answers, and what happened in which order.
struct Script
{
    bool exists = true;
    bool readable = true;
    Bytes contents;
    std::vector<std::string> events;
};

Script script;

ITransferHandler::ChunkCallback Record(const std::string& kind)
{
    return [kind](std::unique_ptr<Bytes> chunk, void*) {
        script.events.push_back(kind + std::string(chunk->begin(), chunk->end()));
        return true;
    };
}

ITransferHandler::Result Transfer()
{
    ITransferHandler::Configuration configuration;
    configuration.url = "path";
    return FileReaderFactory().Create()->GetTransfer(configuration, Record("header "),
                                                     Record("data "), nullptr);
}

}  // namespace

bool VORTAN_MW::ThreadSafeFileSystemAccessor::FileExists(const std::string& path)
{
    script.events.push_back("exists " + path);
    return script.exists;
}

bool VORTAN_MW::ThreadSafeFileSystemAccessor::ReadFile(const std::string& path,
                                                       std::vector<std::uint8_t>& contents)
{
    EXPECT_TRUE(contents.empty());
    script.events.push_back("read " + path);
    contents = script.contents;
    return script.readable;
}

TEST(FileReaderSteps, TheHeaderIsDeliveredBeforeTheFileIsRead)
{
    script = {true, true, {'a', 'b'}, {}};
    EXPECT_TRUE(Transfer().success);
    EXPECT_THAT(script.events, ElementsAre("exists path", "header \1\2\3", "read path", "data ab"));
}

TEST(FileReaderSteps, AMissingFileIsNotRead)
{
    script = {false, true, {'a', 'b'}, {}};
    EXPECT_FALSE(Transfer().success);
    EXPECT_THAT(script.events, ElementsAre("exists path"));
}

TEST(FileReaderSteps, WhatAFailedReadLeftIsDeliveredToTheCallback)
{
    script = {true, false, {'a'}, {}};
    EXPECT_FALSE(Transfer().success);
    EXPECT_THAT(script.events, ElementsAre("exists path", "header \1\2\3", "read path", "data a"));
}

TEST(FileReaderSteps, WhatAFailedReadLeftIsDeliveredToTheBuffer)
{
    script = {true, false, {'a'}, {}};
    Bytes data = {'o', 'l', 'd'};
    EXPECT_FALSE(FileReaderFactory().Create()->GetTransfer({}, boost::none, data).success);
    EXPECT_EQ(data, Bytes{'a'});
}
