// page.h: what all pages of zqtool have in common. A page is one file that loads nothing, unless it is live.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

/// Policy of CSP (W3C) for what a page may load: nothing at all. A live page adds the second text, which allows
/// requests to its own server.
inline constexpr char PAGE_POLICY[] = "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'";
inline constexpr char PAGE_POLICY_LIVE[] = "; connect-src 'self'";

/// Returns the start of a page up to its body: the title, which it escapes, the policy of a page that is live or not,
/// and the look of all pages.
std::string PageHead(std::string_view sTitle, bool bLive = false);

/// Returns an element with the script that all pages share, and then those of this page.
std::string PageScripts(std::initializer_list<char const *> dScripts);

/// Returns an element with data for the scripts. Requires JSON without '<'.
std::string PageData(std::string_view sJson);
