#include "tools/zqtool/http.h"

#include "tools/zqtool/page.h"

#include <algorithm>

namespace
{
    constexpr std::string_view LINE_END = "\r\n";

    struct Status_t
    {
        int iStatus;
        char const * szText;
    };
    constexpr Status_t STATUSES[] = { { HTTP_OK, "OK" }, { HTTP_BAD_REQUEST, "Bad Request" },
        { HTTP_FORBIDDEN, "Forbidden" }, { HTTP_NOT_FOUND, "Not Found" }, { HTTP_BAD_METHOD, "Method Not Allowed" },
        { HTTP_TOO_LARGE, "Request Header Fields Too Large" } };

    // Moves what precedes the separator from sText to sPart, and removes the separator. Returns false if there is none.
    bool TakeUpTo(std::string_view sSeparator, std::string_view & sText, std::string_view & sPart)
    {
        std::size_t const iEnd = sText.find(sSeparator);
        if (iEnd == std::string_view::npos)
        {
            return false;
        }
        sPart = sText.substr(0, iEnd);
        sText.remove_prefix(iEnd + sSeparator.size());
        return true;
    }

    bool IsVisible(std::string_view sText)
    {
        return !sText.empty() && std::all_of(sText.begin(), sText.end(), [](char c) { return c > ' ' && c < 0x7F; });
    }

    std::string Lower(std::string_view sText)
    {
        std::string sLower(sText);
        std::transform(sLower.begin(), sLower.end(), sLower.begin(),
            [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        return sLower;
    }

    std::string_view Trimmed(std::string_view sText)
    {
        std::size_t const iStart = sText.find_first_not_of(" \t"), iEnd = sText.find_last_not_of(" \t");
        return iStart == std::string_view::npos ? "" : sText.substr(iStart, iEnd + 1 - iStart);
    }

    bool IsOwnHost(std::string const & sHost, int iPort)
    {
        std::string const sPort = ":" + std::to_string(iPort);
        return sHost == "127.0.0.1" + sPort || sHost == "localhost" + sPort;
    }
}

bool HttpIsComplete(std::string_view sRequest)
{
    return sRequest.find("\r\n\r\n") != std::string_view::npos;
}

int HttpCheck(std::string_view sRequest, int iPort, std::string & sTarget)
{
    std::string_view sMethod, sPath, sVersion, sLine, sName;
    if (!TakeUpTo(" ", sRequest, sMethod) || !TakeUpTo(" ", sRequest, sPath) || !TakeUpTo(LINE_END, sRequest, sVersion)
        || !IsVisible(sMethod) || !IsVisible(sPath) || !sPath.starts_with('/')
        || (sVersion != "HTTP/1.1" && sVersion != "HTTP/1.0"))
    {
        return HTTP_BAD_REQUEST;
    }
    int nHosts = 0;
    bool bOwn = true;
    while (TakeUpTo(LINE_END, sRequest, sLine) && !sLine.empty())
    {
        if (!TakeUpTo(":", sLine, sName) || !IsVisible(sName))
        {
            return HTTP_BAD_REQUEST;
        }
        std::string const sKey = Lower(sName), sValue = Lower(Trimmed(sLine));
        nHosts += sKey == "host";
        bOwn = bOwn && (sKey != "host" || IsOwnHost(sValue, iPort))
               && (sKey != "origin" || (sValue.starts_with("http://") && IsOwnHost(sValue.substr(7), iPort)));
    }
    sTarget = sPath;
    return nHosts != 1 ? HTTP_BAD_REQUEST : !bOwn ? HTTP_FORBIDDEN : sMethod != "GET" ? HTTP_BAD_METHOD : HTTP_OK;
}

std::string HttpAnswer(int iStatus, std::string_view sType, std::string_view sBody)
{
    auto const & Status = *std::find_if(std::begin(STATUSES), std::end(STATUSES),
        [iStatus](Status_t const & Known) { return Known.iStatus == iStatus; });
    std::string const sText = std::to_string(iStatus) + " " + Status.szText;
    std::string sAnswer = "HTTP/1.1 " + sText + "\r\nContent-Type: " + std::string(sType) + "; charset=utf-8\r\n"
                          + (iStatus == HTTP_BAD_METHOD ? "Allow: GET\r\n" : "")
                          + "Connection: close\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n"
                            "Cross-Origin-Resource-Policy: same-origin\r\nContent-Security-Policy: "
                          + LIVE_PAGE_POLICY + "; frame-ancestors 'none'\r\n";
    sAnswer += "Content-Length: " + std::to_string(sBody.size()) + "\r\n\r\n";
    return sAnswer.append(sBody);
}
