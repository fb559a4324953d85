// http_fuzz.cpp: requests of any bytes. A request that is accepted is a GET that names this machine.
#include "fuzz/fuzz_support.h"
#include "tools/zqtool/http.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    std::string const sRequest(pData, pData + nSize);
    std::string sTarget;
    HttpIsComplete(sRequest);
    int const iStatus = HttpCheck(sRequest, 8080, sTarget);
    if (iStatus == HTTP_OK)
    {
        Require(sRequest.starts_with("GET " + sTarget + " HTTP/1."));
        Require(sTarget.starts_with('/'));
        Require(std::none_of(sTarget.begin(), sTarget.end(), [](char c) { return c <= ' ' || c > '~'; }));
        Require(sRequest.find("127.0.0.1:8080") != std::string::npos
                || Lower(sRequest).find("localhost:8080") != std::string::npos);
    }
    Require(HttpAnswer(iStatus, "text/plain", sTarget).ends_with("\r\n\r\n" + sTarget));
    return 0;
}
