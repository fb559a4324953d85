#include "tools/zqtool/http.h"

#include "tools/zqtool/page.h"
#include "tools/zqtool/parse.h"

#include <algorithm>

namespace
{
    constexpr std::string_view LINE_END = "\r\n";

    struct Status_s
    {
        int iStatus;
        char const * szText;
    };
    constexpr Status_s STATUSES[] = { { HTTP_OK, "OK" }, { HTTP_BAD_REQUEST, "Bad Request" },
        { HTTP_FORBIDDEN, "Forbidden" }, { HTTP_NOT_FOUND, "Not Found" }, { HTTP_BAD_METHOD, "Method Not Allowed" },
        { HTTP_TOO_LARGE, "Request Header Fields Too Large" } };

    // Returns whether a text has characters, and only visible ones of ASCII.
    bool IsVisible(std::string_view sText)
    {
        return !sText.empty()
               && std::all_of(sText.begin(), sText.end(), [](char cByte) { return cByte > ' ' && cByte < 0x7F; });
    }

    // Returns a text without the blanks and tabs at its ends.
    std::string_view Trimmed(std::string_view sText)
    {
        std::size_t const iStart = sText.find_first_not_of(" \t"), iEnd = sText.find_last_not_of(" \t");
        return iStart == std::string_view::npos ? "" : sText.substr(iStart, iEnd + 1 - iStart);
    }

    // Returns whether a host names the loopback address and the port. A browser leaves out port 80.
    bool IsOwnHost(std::string const & sHost, int iPort)
    {
        std::string const sPort = ":" + std::to_string(iPort);
        for (char const * const szName : { "127.0.0.1", "localhost" })
        {
            if (sHost == szName + sPort || (iPort == 80 && sHost == szName))
            {
                return true;
            }
        }
        return false;
    }
}

bool HttpIsComplete(std::string_view sRequest)
{
    return sRequest.find("\r\n\r\n") != std::string_view::npos;
}

int HttpCheck(std::string_view sRequest, int iPort, std::string & sTarget)
{
    std::string_view const sMethod = TakeUpTo(sRequest, " "), sPath = TakeUpTo(sRequest, " ");
    std::optional<std::string_view> const Version = TakePart(sRequest, LINE_END);
    if (!IsVisible(sMethod) || !IsVisible(sPath) || !sPath.starts_with('/')
        || (Version != "HTTP/1.1" && Version != "HTTP/1.0"))
    {
        return HTTP_BAD_REQUEST;
    }
    constexpr std::string_view SCHEME = "http://";
    int nHosts = 0;
    bool bOwn = true;
    for (auto Line = TakePart(sRequest, LINE_END); Line && !Line->empty(); Line = TakePart(sRequest, LINE_END))
    {
        std::optional<std::string_view> const Name = TakePart(*Line, ":");
        if (!Name || !IsVisible(*Name))
        {
            return HTTP_BAD_REQUEST;
        }
        std::string const sKey = Lower(*Name), sValue = Lower(Trimmed(*Line));
        nHosts += sKey == "host";
        bOwn = bOwn && (sKey != "host" || IsOwnHost(sValue, iPort))
               && (sKey != "origin" || (sValue.starts_with(SCHEME) && IsOwnHost(sValue.substr(SCHEME.size()), iPort)));
    }
    if (nHosts != 1)
    {
        return HTTP_BAD_REQUEST;
    }
    if (!bOwn || sMethod != "GET")
    {
        return bOwn ? HTTP_BAD_METHOD : HTTP_FORBIDDEN;
    }
    sTarget = sPath;
    return HTTP_OK;
}

std::string HttpAnswer(int iStatus, std::string_view sType, std::string_view sBody)
{
    auto const & Status = *std::find_if(std::begin(STATUSES), std::end(STATUSES),
        [iStatus](Status_s const & Known) { return Known.iStatus == iStatus; });
    std::string const sText = std::to_string(iStatus) + " " + Status.szText;
    std::string sAnswer = "HTTP/1.1 " + sText + "\r\nContent-Type: " + std::string(sType) + "; charset=utf-8\r\n"
                          + (iStatus == HTTP_BAD_METHOD ? "Allow: GET\r\n" : "")
                          + "Connection: close\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n"
                            "Cross-Origin-Resource-Policy: same-origin\r\nContent-Security-Policy: "
                          + PAGE_POLICY + PAGE_POLICY_LIVE + "; frame-ancestors 'none'\r\n";
    sAnswer += "Content-Length: " + std::to_string(sBody.size()) + "\r\n\r\n";
    return sAnswer.append(sBody);
}
