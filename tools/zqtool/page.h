// page.h: what all pages of zqtool have in common. A page is one file that loads nothing.
#pragma once

#include <string>
#include <string_view>

/// Returns the start of a page up to its body: the title, which is escaped, the rule that nothing is loaded, the shared
/// look and then the page's own, a style sheet.
std::string PageHead(std::string_view sTitle, std::string_view sOwnStyle);
