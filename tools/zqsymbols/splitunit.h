// splitunit.h: the part of a unit that "-gsplit-dwarf" leaves out of the program.
//
// It lies in a file of its own (.dwo) or in a package of them (.dwp).
//
// libdw finds a .dwo file at the path that the compiler noted, from the compiler's folder or from the program's. The
// class also finds a file with that name in the program's folder, and the part in the package beside the program.
#pragma once

#include <elfutils/libdw.h>
#include <memory>
#include <string>
#include <unordered_map>

namespace zqsymbols
{
    /// The other parts of units, each found once.
    class SplitUnits_c
    {
    public:
        SplitUnits_c();
        ~SplitUnits_c();
        SplitUnits_c(SplitUnits_c const &) = delete;
        SplitUnits_c & operator=(SplitUnits_c const &) = delete;

        /// Returns the DIE of a unit's other part, or the unit itself if it has none or none is found. sModule is the
        /// path of the program. Its package has that path with ".dwp" appended. The DIE is valid as long as both the
        /// object and the unit.
        Dwarf_Die Find(Dwarf_Die Unit, std::string const & sModule);

    private:
        class Image_c;

        std::unordered_map<void *, Dwarf_Die> m_dFound;                          // by their units
        std::unordered_map<std::string, std::unique_ptr<Image_c>> m_dPackages;   // by the paths of their programs
        std::unordered_map<void *, std::unique_ptr<Image_c>> m_dSkeletons;       // by their units
    };
}
