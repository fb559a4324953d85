// output.h: a file that a command writes beside what it prints.
#pragma once

#include <fstream>
#include <string>
#include <vector>

/// Reason why a file is not written.
inline constexpr char OUTPUT_UNWRITABLE[] = "it can't be written";

/// File to write. Without a name there is none, and nothing is written. The text goes to a file beside, the name with
/// ".part" at its end, which replaces the file when it is whole. It goes to the file itself if the name is that of a
/// pipe, a device or the like, or if the folder takes no new file.
class OutputFile_c
{
public:
    OutputFile_c() = default;
    ~OutputFile_c();
    OutputFile_c(OutputFile_c const &) = delete;
    OutputFile_c & operator=(OutputFile_c const &) = delete;

    /// Begins the file and returns true. For an empty name only returns true. Returns false, and prints why, on failure
    /// or if the file is one of the inputs.
    bool Open(std::string const & sFile, std::vector<std::string> const & dInputs);

    /// Writes the rest and returns true. Returns false, and prints why, if the file could not be written whole. An
    /// earlier file of the name then stays. Returns true without a name.
    bool Close();

    /// Returns whether the file has a name.
    bool IsWanted() const { return !m_sFile.empty(); }

    /// Returns the stream. Requires that the file has a name.
    std::ostream & Get() { return m_Stream; }

private:
    bool Fail();

    std::string m_sFile;
    std::string m_sPart;   // the file beside; empty if there is none
    std::ofstream m_Stream;
};
