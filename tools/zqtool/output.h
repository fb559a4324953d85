// output.h: a file that a command writes beside what it prints.
#pragma once

#include <fstream>
#include <string>
#include <vector>

/// File to write, or none if it has no name.
class OutputFile_c
{
public:
    /// Creates the file, or empties an existing one; for an empty name it creates none. Returns false, and prints why,
    /// on failure or if it is one of the inputs.
    bool Open(std::string const & sFile, std::vector<std::string> const & dInputs);

    /// Writes the rest. Returns false, and prints why, if the file could not be written whole.
    bool Close();

    /// Returns whether the file has a name.
    bool IsWanted() const { return !m_sFile.empty(); }

    /// Returns the stream. Requires a name.
    std::ostream & Get() { return m_Stream; }

private:
    bool Check() const;

    std::string m_sFile;
    std::ofstream m_Stream;
};
