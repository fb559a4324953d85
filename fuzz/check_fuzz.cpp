// check_fuzz.cpp: texts of any bytes, as zqtool checks them.
//
// The first byte chooses the kind, the options and the name of the file. Complaints come in the order of their lines,
// and each that has a line has a column.
#include "fuzz/fuzz_support.h"
#include "tools/zqtool/checkschema.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * pData, std::size_t nSize)
{
    static std::vector<Complaint_t> & s_dNone = *ZQ_NEW std::vector<Complaint_t>;
    static auto const & s_dSchema = *ZQ_NEW std::vector<SchemaColumn_t>(ReadSchema("schema.txt",
        "@head type least most required\na text 1 5 yes\nb int 0 100 yes\nc pair 1 20 -\nd x|y - - -\n"
        "e float - 2.5 -\nf bool - - no\n",
        s_dNone));
    Require(s_dNone.empty());
    Require(s_dSchema.size() == 6);

    Input_c Input(pData, nSize);
    unsigned const nChoice = Input.Get();
    constexpr TextKind_e KINDS[] = { TextKind_e::Table, TextKind_e::Spreadsheet, TextKind_e::PropertyList,
        TextKind_e::Script };
    CheckOptions_t Options;
    Options.eKind = KINDS[nChoice % std::size(KINDS)];
    Options.bRows = (nChoice & 4) != 0;
    Options.pSchema = (nChoice & 8) != 0 && Options.eKind < TextKind_e::PropertyList ? &s_dSchema : nullptr;
    Options.sHead = (nChoice & 16) != 0 && Options.eKind == TextKind_e::Table ? "a b" : "";
    Options.sSeparators = (nChoice & 32) != 0 ? "/" : "";
    std::string const sText = Input.Extract();
    CheckedText_t const Checked = CheckText((nChoice & 64) != 0 ? "x.csv" : "x.txt", sText, Options);

    int const nLines = static_cast<int>(std::count(sText.begin(), sText.end(), '\n')) + 1;
    int iLine = 0;
    for (Complaint_t const & Complaint : Checked.dComplaints)
    {
        Require(!Complaint.sText.empty());
        Require(Complaint.iLine >= iLine);
        Require(Complaint.iLine <= nLines + 1);
        Require(Complaint.iLine == 0 || Complaint.iColumn > 0);
        iLine = Complaint.iLine;
    }
    Require(Checked.bWhole || !Checked.dComplaints.empty());
    Require(Checked.nRows >= 0);
    Require(Options.bRows || Checked.dRows.empty());
    return 0;
}
