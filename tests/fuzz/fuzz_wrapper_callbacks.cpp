// The functions that the maker's wrapper calls, where size times count wraps around at 32 bits.

#include "CallbackTrial.h"
#include "QXCurlEasyHandler.h"

namespace {

struct Callbacks
{
    using Handler = VORTAN_MW::QXCurlEasyHandler;
    using Count = unsigned int;
    static constexpr bool wraps = true;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    CallbackTrial<Callbacks>(input).Run();
    return 0;
}
