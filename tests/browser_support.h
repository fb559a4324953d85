// browser_support.h: pages in a headless browser.
#pragma once

#include "platform/checker.h"
#include "tests/test_support.h"

/// Reason for which a test of pages is skipped.
inline constexpr char NEEDS_BROWSER[] =
    "needs a browser, for instance Debian's package chromium-headless-shell, and 64 bits without the address checker";

/// Returns the browser's program, empty if there is none. Returns an empty text also under the address checker and in
/// 32 bits: their pages are the same, and take long.
inline std::string FindBrowser()
{
    if (plat::ADDRESS_CHECKER || sizeof(void *) < 8)
    {
        return "";
    }
    std::string const sFound =
        RunShell("for p in chromium-headless-shell chromium google-chrome; do command -v $p && break; done").sOutput;
    return sFound.substr(0, sFound.find('\n'));
}

/// Writes a page to a file in Folder, opens it, and returns its document after the page's own script and then sScript
/// have run. sAfter follows the file's name in the address. sOptions are further options of the browser. They replace
/// those of the same name. Expects that the browser succeeds and the page says it is ready.
inline std::string LoadDocument(TempFolder_c const & Folder, std::string const & sPage,
    std::string const & sScript = "", std::string const & sAfter = "", std::string const & sOptions = "")
{
    std::string const sFile = Folder.Write("test.html", sPage + "<script>" + sScript + "</script>");
    Result_t const Result = RunShell("timeout 60 " + FindBrowser()
                                     + " --headless --no-sandbox --disable-gpu --window-size=1200,900 --user-data-dir='"
                                     + Folder.Join("profile") + "' --virtual-time-budget=3000 --dump-dom " + sOptions
                                     + " 'file://" + sFile + sAfter + "' 2>&1");
    EXPECT_EQ(Result.iStatus, 0) << Result.sOutput;
    EXPECT_THAT(Result.sOutput, testing::HasSubstr("<html lang=\"en\" data-ready=\"1\""));
    return Result.sOutput;
}
