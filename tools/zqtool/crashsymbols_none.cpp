// Names for addresses, in a build without libdw: there are none.
#include "tools/zqtool/crashsymbols.h"

struct CrashSymbols_c::State_s
{};

CrashSymbols_c::CrashSymbols_c(std::vector<std::string> const &, std::function<void(std::string const &)> const &) {}

CrashSymbols_c::~CrashSymbols_c() = default;

bool CrashSymbols_c::CanRead()
{
    return false;
}

void CrashSymbols_c::Name(Crash_t &) {}

std::vector<std::string> CrashSymbols_c::GetMissing() const
{
    return {};
}
