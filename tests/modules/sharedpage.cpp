// sharedpage.cpp: a library whose data follow its code in one page of the file, as linkers that save space place them.

__attribute__((section("sharedpage"))) int g_dSharedPage[2] = { 1, 2 };

int const * SharedPageData()
{
    return g_dSharedPage;
}
