// cserializestd.h: types of the standard library in archives.
//
// With this header, Serialize of an archive (cserialize.h) accepts texts, sequences, maps, sets, optionals, pairs,
// tuples and arrays, of all that an archive accepts and of one another. docs/formats.md describes their bytes. A text
// has the bytes of a String_T, so either can load what the other has stored.
//
// - Texts: std::string, with any allocator.
// - Sequences: std::vector, std::vector<bool>, std::deque and std::list. Their elements need a default constructor.
// - Maps and sets: ordered and unordered ones. Keys and values need a default constructor. The keys of unordered ones
//   need `<`: their entries are stored in the order of their keys, so that equal contents have equal bytes, unless a
//   key occurs twice.
// - Others: std::array, std::pair, std::tuple and std::optional. The value of an optional needs a default constructor.
//
// Requires that an element of a sequence, a map or a set stores at least one byte.
//
// Ownership: a load replaces the contents of a container.
// Threads: as cserialize.h.
// Cost: a load allocates the contents. A save of an unordered container allocates up to two pointers for each entry.
// Contiguous values except `bool` are copied as one block.
// Failure: a container that a damaged archive makes too large fails the archive, and so does a key twice in a container
// of unique keys. A load allocates no more than twice what the bytes in the archive can fill, or 4096 values if the
// archive does not know its length. A container among whose elements the archive fails has some of them. A container
// whose number of elements fails keeps its contents, and so does each later one.
//
//     std::map<std::string, std::vector<int>> dScores{ { "ogre", { 30, 10 } } };
//     BufferedWriteable_c Archive("scores.arc", 1);
//     if (Archive.Open())
//     {
//         Archive.Serialize(dScores);
//     }
//     bool const bSaved = Archive.Close() && !Archive.IsFailed();
#pragma once

#include "zqcore/cserialize.h"

#include <algorithm>
#include <array>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

/// Texts that own their characters.
template <typename T>
concept ArchiveText_T = std::same_as<typename T::value_type, char> && requires(T & sText, std::size_t nLength)
{
    typename T::traits_type;
    sText.resize(nLength);
    sText.data();
};

/// Sequences that grow at their end.
template <typename T>
concept ArchiveSequence_T = requires(T & dItems)
{
    typename T::value_type;
    dItems.clear();
    dItems.emplace_back();
    dItems.begin();
    dItems.size();
};

/// Containers of keys. Maps fit too, so Serialize of sets excludes ArchiveMap_T.
template <typename T>
concept ArchiveSet_T = requires(T & dItems, typename T::key_type && Key)
{
    dItems.clear();
    dItems.emplace_hint(dItems.end(), std::move(Key));
    dItems.size();
};

/// Containers that map keys to values.
template <typename T>
concept ArchiveMap_T = requires(T & dItems, typename T::key_type && Key, typename T::mapped_type && Value)
{
    dItems.clear();
    dItems.emplace_hint(dItems.end(), std::move(Key), std::move(Value));
    dItems.size();
};

/// Store or load a text, a sequence, a map, a set, an optional, a pair, a tuple or an array. Serialize of the archive
/// calls them.
template <ArchiveText_T T>
void Serialize(Serializeable_c & Archive, T & sText);
template <ArchiveSequence_T T>
void Serialize(Serializeable_c & Archive, T & dItems);
template <ArchiveMap_T T>
void Serialize(Serializeable_c & Archive, T & dItems);
template <ArchiveSet_T T>
requires(!ArchiveMap_T<T>) void Serialize(Serializeable_c & Archive, T & dItems);
template <typename T>
void Serialize(Serializeable_c & Archive, std::optional<T> & Value);
template <typename FIRST, typename SECOND>
void Serialize(Serializeable_c & Archive, std::pair<FIRST, SECOND> & Value);
template <typename... T>
void Serialize(Serializeable_c & Archive, std::tuple<T...> & Value);
template <typename T, std::size_t N>
void Serialize(Serializeable_c & Archive, std::array<T, N> & dItems);

#include "zqcore/cserializestd.inl"
