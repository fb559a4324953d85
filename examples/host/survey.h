// survey.h: the contents of a media tree of any game.
//
// The survey reads the library's table of files. Then it opens every file that is not empty by its bare name, as a
// game does.
#pragma once

#include "zqcore/carray.h"
#include "zqcore/cstring.h"

#include <cstdint>

class File_c;

/// The files of one extension.
struct Extension_s
{
    String_T<128> sExt;   // without the dot; empty for files without one
    int nFiles = 0;
    std::uint64_t nBytes = 0;
};

/// A file that is a warehouse table.
struct Table_s
{
    File_c const * pFile = nullptr;
    int nRows = 0;
};

/// Returns the size of a file in bytes, as the table of files has it.
std::uint32_t SizeOf(File_c const & File);

/// Survey of one media tree. Requires calls of List, ReadFiles and ReadTables in this order, each once.
class Survey_c
{
public:
    using Files_t = Array_T<File_c *, 1024, 0>;
    using Extensions_t = Array_T<Extension_s, 64, 0>;
    using Tables_t = Array_T<Table_s, 64, 0>;

    /// Lists the files and extensions that the scan found, and counts the folders.
    void List();

    /// Reads every file that is not empty once. Counts the files that are empty, and those that can't be read.
    void ReadFiles();

    /// Counts the rows of the tables that ReadFiles found, and removes files that are no tables.
    void ReadTables();

    /// Reads the next nFiles files, and starts over after the last one. Reads files of up to 1 MiB whole, and only the
    /// first piece of each bigger one.
    void StreamFiles(int nFiles);

    /// Return the files and the extensions, those of most bytes first, and the tables in the order of their paths.
    Files_t const & GetFiles() const { return m_dFiles; }
    Extensions_t const & GetExtensions() const { return m_dExtensions; }
    Tables_t const & GetTables() const { return m_dTables; }

    /// Returns the number of files whose name also occurs elsewhere (File_c::bDuplicate).
    int CountDuplicates() const;

    int m_nFolders = 0;
    std::uint64_t m_nBytes = 0;   // bytes of all files
    int m_nEmpty = 0;             // files without contents, which are not opened
    int m_nRead = 0;              // files read
    std::uint64_t m_nBytesRead = 0;
    int m_nUnreadable = 0;
    double m_tReading = 0.0;   // seconds in FileOpen and FileClose
    int m_nRows = 0;           // rows of all tables
    double m_tTables = 0.0;    // seconds for the tables

private:
    void CountExtension(File_c const & File);
    void ReadFile(File_c & File);

    Files_t m_dFiles;
    Extensions_t m_dExtensions;
    Tables_t m_dTables;
    Files_t m_dStreamed;   // readable files, without duplicates
    int m_iNext = 0;       // the next file of StreamFiles
};
