#include "tools/zqtool/page.h"

#include "tools/zqtool/text.h"

// Style sheet and script of all pages, which the build makes from page.css and page.js.
extern char const PAGE_CSS[], PAGE_JS[];

std::string PageHead(std::string_view sTitle, bool bLive)
{
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"color-scheme\" content=\"light dark\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\""
           + std::string(PAGE_POLICY) + (bLive ? PAGE_POLICY_LIVE : "") + "\">\n<title>" + HtmlEscaped(sTitle)
           + "</title>\n<style>\n" + PAGE_CSS + "</style>\n</head>\n<body>\n";
}

std::string PageScripts(std::initializer_list<char const *> dScripts)
{
    std::string sScripts = "<script>\n" + std::string(PAGE_JS);
    for (char const * const szScript : dScripts)
    {
        sScripts += szScript;
    }
    return sScripts + "</script>\n";
}

std::string PageData(std::string_view sJson)
{
    return "<script id=\"data\" type=\"application/json\">" + std::string(sJson) + "</script>\n";
}
