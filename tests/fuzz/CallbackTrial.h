#pragma once

#include <ITransferHandler.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Input.h"
#include "Require.h"

// Calls the callbacks of an HTTP handler in the place of its library, with what an input says, and
// holds each call against what is promised. Callbacks names the handler, the type that its library
// counts in, and whether size times count may wrap around there.
template <typename Callbacks>
class CallbackTrial
{
public:
    explicit CallbackTrial(Input& input) : m_Input(input)
    {
        m_Detail.url = "url";
        m_Detail.userData = this;
        m_Detail.requestBody = m_Input.Text();
        m_SetUp(m_Header, m_Detail.headerBuffer, m_Detail.headerCallback);
        m_SetUp(m_Body, m_Detail.dataBuffer, m_Detail.dataCallback);
    }
    CallbackTrial(const CallbackTrial&) = delete;
    CallbackTrial& operator=(const CallbackTrial&) = delete;
    ~CallbackTrial() = default;

    void Run()
    {
        while (!m_Input.IsAtEnd()) {
            m_Step(m_Input.Choose(4));
        }
    }

private:
    using Handler = typename Callbacks::Handler;
    using Count = typename Callbacks::Count;
    using Bytes = VORTAN_MW::ITransferHandler::Bytes;
    using ChunkCallback = VORTAN_MW::ITransferHandler::ChunkCallback;

    enum class Answer
    {
        Refuse,
        Accept,
        Throw
    };

    // Where the bytes of one kind go, and what must have arrived there.
    struct Sink
    {
        Bytes buffer;
        Bytes expectedBuffer;
        Bytes expectedChunk;
        bool hasBuffer = false;
        bool hasCallback = false;
        int calls = 0;
    };

    void m_SetUp(Sink& sink, Bytes*& buffer, ChunkCallback& callback)
    {
        sink.hasBuffer = m_Input.Flag();
        sink.hasCallback = m_Input.Flag();
        if (sink.hasBuffer) {
            buffer = &sink.buffer;
        }
        if (sink.hasCallback) {
            callback = [this, &sink](std::unique_ptr<Bytes> chunk, void* userData) {
                return m_Receive(sink, std::move(chunk), userData);
            };
        }
    }

    bool m_Receive(Sink& sink, std::unique_ptr<Bytes> chunk, const void* userData)
    {
        ++sink.calls;
        Require(userData == this, "a callback is called with the user's pointer");
        Require(chunk && *chunk == sink.expectedChunk, "a callback receives the chunk as it came");
        if (m_Answer == Answer::Throw) {
            throw std::runtime_error("thrown by the client");
        }
        return m_Answer == Answer::Accept;
    }

    void m_Step(unsigned kind)
    {
        switch (kind) {
            case 0:
                m_Read();
                break;
            case 1:
                m_Write(m_Header, &Handler::s_WriteHeaderCallback);
                break;
            case 2:
                m_Write(m_Body, &Handler::s_WriteBodyCallback);
                break;
            default:
                m_CallWithoutDetail();
                break;
        }
    }

    void m_Read()
    {
        const Count capacity = m_Input.template Number<std::uint16_t>() % 1024;
        const auto [size, count] = m_Factors(capacity);
        const std::size_t offset = m_Detail.bodyOffset;
        const std::size_t expected =
            std::min<std::size_t>(capacity, m_Detail.requestBody.size() - offset);
        std::vector<char> buffer(capacity);
        Require(Handler::s_ReadBodyCallback(buffer.data(), size, count, &m_Detail) == expected,
                "a read returns what is left, or as much of it as there is room for");
        Require(m_Detail.bodyOffset == offset + expected, "a read moves the offset on");
        Require(m_Detail.requestBody.compare(offset, expected, buffer.data(), expected) == 0,
                "a read supplies the body from the offset on");
        Require(std::all_of(buffer.begin() + static_cast<std::ptrdiff_t>(expected), buffer.end(),
                            [](char byte) { return byte == '\0'; }),
                "a read leaves the rest of the room alone");
    }

    void m_Write(Sink& sink, Count (*write)(char*, Count, Count, void*))
    {
        m_Answer = static_cast<Answer>(m_Input.Choose(3));
        const std::string text = m_Input.Text();
        std::vector<char> bytes(text.begin(), text.end());
        sink.expectedChunk.assign(text.begin(), text.end());
        if (sink.hasBuffer) {
            sink.expectedBuffer.insert(sink.expectedBuffer.end(), text.begin(), text.end());
        }
        const int callsBefore = sink.calls;
        const auto [size, count] = m_Factors(static_cast<Count>(bytes.size()));
        bool thrown = false;
        try {
            const Count accepted = write(bytes.data(), size, count, &m_Detail);
            const bool accepts = !sink.hasCallback || m_Answer == Answer::Accept;
            Require(accepted == (accepts ? bytes.size() : 0),
                    "a write returns the length if the bytes were accepted, else 0");
        } catch (const std::runtime_error&) {
            thrown = true;
        }
        Require(thrown == (sink.hasCallback && m_Answer == Answer::Throw),
                "what a client throws reaches the caller");
        Require(sink.calls == callsBefore + (sink.hasCallback ? 1 : 0),
                "a chunk is handed to its callback once");
        Require(
            m_Header.buffer == m_Header.expectedBuffer && m_Body.buffer == m_Body.expectedBuffer,
            "the bytes are appended to the buffer of their kind, whatever the callback says");
    }

    void m_CallWithoutDetail()
    {
        char bytes[] = "abc";
        Require(Handler::s_ReadBodyCallback(bytes, 1, 3, nullptr) == 0 &&
                    Handler::s_WriteHeaderCallback(bytes, 1, 3, nullptr) == 0 &&
                    Handler::s_WriteBodyCallback(bytes, 1, 3, nullptr) == 0,
                "without a detail nothing is read or accepted");
        Require(std::string(bytes) == "abc", "without a detail nothing is written");
    }

    // A size and a count whose product is the length.
    std::pair<Count, Count> m_Factors(Count length)
    {
        const Count number = m_Input.template Number<std::uint32_t>();
        if (length == 0) {
            return m_Input.Flag() ? std::pair<Count, Count>(0, number)
                                  : std::pair(number, Count{0});
        }
        if (Callbacks::wraps && number % 2 == 1) {
            return {number, static_cast<Count>(length * m_Inverse(number))};
        }
        return number != 0 && length % number == 0
                   ? std::pair<Count, Count>(number, length / number)
                   : std::pair<Count, Count>(1, length);
    }

    // What the odd number has to be multiplied with to wrap around to 1. Each round doubles the
    // number of low bits that are right, of which there are three to begin with.
    static Count m_Inverse(Count number)
    {
        Count inverse = number;
        for (int bits = 3; bits < std::numeric_limits<Count>::digits; bits *= 2) {
            inverse *= 2 - number * inverse;
        }
        return inverse;
    }

    Input& m_Input;
    VORTAN_MW::ITransferHandler::TransferDetail m_Detail;
    Sink m_Header;
    Sink m_Body;
    Answer m_Answer = Answer::Refuse;
};
