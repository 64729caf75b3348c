// The functions that libcurl calls.

#include "CallbackTrial.h"
#include "CurlEasyHandler.h"

namespace {

struct Callbacks
{
    using Handler = VORTAN_MW::CurlEasyHandler;
    using Count = std::size_t;
    static constexpr bool wraps = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    CallbackTrial<Callbacks>(input).Run();
    return 0;
}
