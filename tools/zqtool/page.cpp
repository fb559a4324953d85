#include "tools/zqtool/page.h"

#include "tools/zqtool/text.h"

// Made by the build from page.css.
extern char const PAGE_CSS[];

std::string PageHead(std::string_view sTitle, std::string_view sOwnStyle)
{
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"color-scheme\" content=\"light dark\">\n"
           "<meta http-equiv=\"Content-Security-Policy\"\n"
           "      content=\"default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n"
           "<title>"
           + HtmlEscaped(sTitle) + "</title>\n<style>\n" + PAGE_CSS + std::string(sOwnStyle)
           + "</style>\n</head>\n<body>\n";
}
