// headerexamples.h: where an example in the head of a public header runs.
#pragma once

#include "tests/media_fixture.h"
#include "zqcore/zqcore.h"

/// An example, run in an empty folder with an empty table of files. A complaint, or a handle that stays open, fails the
/// test.
class HeaderExample : public MediaTest
{
protected:
    CurrentFolderScope_c const m_Current{ m_Folder.GetPath() };
};
