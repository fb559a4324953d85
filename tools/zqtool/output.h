// output.h: a file that a command writes beside what it prints.
#pragma once

#include <fstream>
#include <string>
#include <vector>

/// Reason why a file is not written.
inline constexpr char OUTPUT_UNWRITABLE[] = "it can't be written";

/// File to write. Without a name there is none, and nothing is written.
class OutputFile_c
{
public:
    /// Creates the file, or empties an existing one, and returns true. For an empty name only returns true. Returns
    /// false, and prints why, on failure or if the file is one of the inputs.
    bool Open(std::string const & sFile, std::vector<std::string> const & dInputs);

    /// Writes the rest and closes the file. Returns false, and prints why, if the file could not be written whole.
    /// Returns true without a name.
    bool Close();

    /// Returns whether the file has a name.
    bool IsWanted() const { return !m_sFile.empty(); }

    /// Returns the stream. Requires that the file has a name.
    std::ostream & Get() { return m_Stream; }

private:
    bool Check() const;

    std::string m_sFile;
    std::ofstream m_Stream;
};
