// Compiled by tests with several types for VORTAN_VALUE, of which only curl_off_t is right.
#include "CurlOption.h"

void SetLargeOption(CURL* handle)
{
    VORTAN_MW::UTILS::SetCurlOption<CURLOPT_INFILESIZE_LARGE>(handle, VORTAN_VALUE{7});
}
