// page.h: what all pages of zqtool have in common. A page is one file that loads nothing, unless it is live.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

/// Policies of CSP (W3C) for what a page may load. The first is the default: nothing at all. The second allows requests
/// to the server of the page.
inline constexpr char PAGE_POLICY[] = "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'";
inline constexpr char LIVE_PAGE_POLICY[] =
    "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; connect-src 'self'";

/// Returns the start of a page up to its body: the title, which it escapes, the policy and the look of all pages.
std::string PageHead(std::string_view sTitle, char const * szPolicy = PAGE_POLICY);

/// Returns an element with the script that all pages share, and then those of this page.
std::string PageScripts(std::initializer_list<char const *> dScripts);

/// Returns an element with data for the scripts. Requires JSON without '<'.
std::string PageData(std::string_view sJson);
