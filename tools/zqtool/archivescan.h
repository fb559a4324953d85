// archivescan.h: the parts of an archive that can be recognised without the code that wrote it.
#pragma once

#include <bitset>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// Bytes of a version, a label, an identifier, a length or a count in an archive.
inline constexpr std::size_t ARCHIVE_WORD = 4;

/// Kind of a part of an archive.
enum class ArchivePart_e
{
    Bytes,   // not recognised
    Label,   // of a name that is known
    Chunk,   // its name and length, without its contents
    Text,
    Pass,        // label that begins a pass of an object graph
    Statics,     // count and identifiers of static objects
    Object,      // identifier, label and class of an object's first reference
    ObjectEnd,   // label after its contents
    Pointer,     // a later reference, or null
    Registered   // label and identifier of an address
};

/// A part of an archive. sName is a view of the archive's bytes or of a name in the ArchiveNames_c.
struct ArchivePart_t
{
    ArchivePart_e eKind = ArchivePart_e::Bytes;
    std::size_t nAt = 0;           // from the start of the file
    std::size_t nBytes = 0;        // of a chunk only its name and length
    int nDepth = 0;                // chunk and objects that it is in; in a chunk only objects that began there count
    std::string_view sName = {};   // of a label, a chunk or a class, or the text; empty if there is none
    std::int64_t iValue = 0;       // bytes of a chunk's payload that are there, count of static objects, or identifier
    std::uint32_t dwName = 0;      // CRC-32 of a chunk's name
};

/// Damage, or a record that does not fit its surroundings.
struct ArchiveProblem_t
{
    std::size_t nAt;   // from the start of the file
    std::string sText;
};

/// Names of labels and chunks, by their values in archives.
class ArchiveNames_c
{
public:
    /// Knows the labels of object graphs, and no names.
    ArchiveNames_c();

    /// Adds a name, as a label and as a chunk. If two names share a value, keeps the first.
    void Add(std::string const & sName);

    /// Returns whether a word may be the value of a name or of a label of object graphs. False is certain.
    bool MayKnow(std::uint32_t dwValue) const { return m_dKnown[dwValue & LOW_HALF]; }

    /// Return the name of a label or of a chunk, or null.
    std::string const * Label(std::uint32_t dwValue) const { return Find(m_dLabels, dwValue); }
    std::string const * Chunk(std::uint32_t dwValue) const { return Find(m_dChunks, dwValue); }

private:
    using Names_t = std::unordered_map<std::uint32_t, std::string>;
    static constexpr std::uint32_t LOW_HALF = 0xFFFF;

    static std::string const * Find(Names_t const & dNames, std::uint32_t dwValue)
    {
        auto const itName = dNames.find(dwValue);
        return itName != dNames.end() ? &itName->second : nullptr;
    }

    Names_t m_dLabels, m_dChunks;
    std::bitset<LOW_HALF + 1> m_dKnown;   // by the low half of a value: rules out most words of an archive
};

/// Parts and problems of an archive after its version word.
struct ArchiveScan_t
{
    std::vector<ArchivePart_t> dParts;   // in order, without gaps
    std::vector<ArchiveProblem_t> dProblems;
};

/// Returns the parts and problems of an archive after its version word. Recognises these parts:
/// - chunks of known names, and chunks of any name that follow one another from the version word to the end. The last
///   of several may be unfinished.
/// - labels of known names, and those of object graphs with their records.
/// - a text of 3 to 0xFFFFFF bytes, with its length and its zero. It is well-formed UTF-8, and its only characters
///   below U+0020 are tabs and line ends.
///
/// Reports the first 1000 problems:
/// - a chunk that has no length or one below 4.
/// - a chunk that does not end in the archive or was not finished.
/// - a chunk that begins in another chunk.
/// - an object that does not end, or ends without a beginning.
/// - a label of an object graph without its record, or an identifier out of range.
///
/// Requires that sArchive and Names outlive the result.
ArchiveScan_t ScanArchive(std::string_view sArchive, ArchiveNames_c const & Names);
