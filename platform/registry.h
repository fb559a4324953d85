// registry.h: the machine's and the user's store of named, typed values under keys.
//
// Each of the two is a tree of keys, which outlives the processes and which all of them see.
//
// - Key paths separate with `\`. An empty path is the tree itself, an empty or null name the key's unnamed value.
// - Keys and names compare without regard to ASCII case. They may hold any byte but 0, and a key's name no `\`.
// - A name has at most 255 bytes and a value 16 MiB. A path has no limit.
// - A value is replaced as a whole: a reader sees the old value or the new one, also after a process was killed. A
//   damaged value counts as none.
// - Changes of one key wait for each other. A process that died delays nobody. One that is stopped makes the others fail
//   after 5 seconds.
//
// Threads: any thread and any process. A child process can use the keys that its parent had open.
#pragma once

#include "platform/compiler.h"
#include "platform/files.h"

#include <cstddef>
#include <cstdint>

namespace plat
{
    enum class RegistryTree_e
    {
        Machine,
        User
    };

    /// The kinds of values, with the numbers that the store keeps.
    enum class RegistryType_e : std::uint32_t
    {
        Untyped = 0,
        Text = 1,
        Binary = 3,
        Dword = 4
    };

    /// Keeps a tree at another place, which a host or a test names; null restores the system's. Where the store is made
    /// of files, a place is a folder. The text is copied. Call it at start-up only.
    ZQ_API void RegistrySetFolder(RegistryTree_e eTree, char const * szFolder);

    /// Reads a value into the buffer. nSize is the buffer's size going in and the value's size coming out, whether it
    /// fits or not, 0 if there is none. False if there is no such value or it does not fit; the buffer is unchanged.
    bool RegistryRead(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e & eType,
        void * pBuffer, std::size_t & nSize);

    /// Stores a value, making its keys as needed; false on failure, with the previous value in place.
    bool RegistryWrite(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e eType,
        void const * pData, std::size_t nSize);

    /// Whether the key is there.
    bool RegistryKeyExists(RegistryTree_e eTree, char const * szKey);

    /// An open key, for one thread at a time. Null is a key that is not open: every operation on it fails. An open key
    /// may be deleted by others; what is asked of it then fails, even if a new key of its name is made.
    struct RegistryKey_s;
    using RegistryKey_t = RegistryKey_s *;

    /// All rights, standard ones included.
    constexpr std::uint32_t REGISTRY_ALL_ACCESS = 0xF003F;

    /// Opens a key by its path from the tree, or makes it and those on the way to it. Null if it is not there or can't
    /// be made. Rights that the user does not have are left out: what needs them fails later.
    RegistryKey_t RegistryOpenKey(RegistryTree_e eTree, char const * szKey, std::uint32_t dwAccess, bool bCreate);

    /// Closes a key. Null does nothing.
    void RegistryCloseKey(RegistryKey_t hKey);

    /// As RegistryRead and RegistryWrite above, in an open key.
    bool RegistryRead(
        RegistryKey_t hKey, char const * szName, RegistryType_e & eType, void * pBuffer, std::size_t & nSize);
    bool RegistryWrite(
        RegistryKey_t hKey, char const * szName, RegistryType_e eType, void const * pData, std::size_t nSize);

    /// The type and size of a value; false if there is none.
    bool RegistryQuery(RegistryKey_t hKey, char const * szName, RegistryType_e & eType, std::size_t & nSize);

    /// Deletes a value; false if there is none.
    bool RegistryDeleteValue(RegistryKey_t hKey, char const * szName);

    /// Gives a value a new name, under which there must be none. The new one is written before the old one goes: a
    /// process killed in between leaves both, and no writer comes in between. False on failure, with the old one kept.
    bool RegistryRenameValue(RegistryKey_t hKey, char const * szOldName, char const * szNewName);

    /// The name of a subkey, as it was spelled when it was made. Subkeys come in the order of their folded bytes. False
    /// if there is no such subkey, or if the name with its terminator does not fit. The names are read
    /// once, and again after a change. A change by another process may be seen 20 ms late.
    bool RegistryEnumKey(RegistryKey_t hKey, std::size_t iIndex, char * szName, std::size_t nSize);

    /// Deletes a key with its values by its path from an open one; an empty path deletes the open key itself, which is
    /// still to be closed. False if it is not there, if it has subkeys or is a tree itself; nothing is deleted then.
    bool RegistryDeleteKey(RegistryKey_t hKey, char const * szKey);

    /// The same with all subkeys, however deep; those of a key are deleted before it, from the last to the first. A
    /// failure may leave a part deleted.
    bool RegistryDeleteTree(RegistryKey_t hKey, char const * szKey);

    /// Counts, and lengths in bytes without terminators.
    struct RegistryKeyInfo_t
    {
        std::size_t nSubKeys = 0;
        std::size_t nMaxSubKeyLength = 0;
        std::size_t nValues = 0;
        std::size_t nMaxValueNameLength = 0;
        std::size_t nMaxValueLength = 0;
        FileTime_t tLastWrite = 0;   // of a value or subkey
    };

    /// Counts a key's subkeys and values; false on failure. Reads all values.
    bool RegistryGetKeyInfo(RegistryKey_t hKey, RegistryKeyInfo_t & Info);

    /// The kind of system: 2 for one that counts names in 16-bit units, so that a name may have twice as many bytes as
    /// the store reports. 0 for one that counts bytes. A host that replaces the store sets the kind of its own.
    std::uint32_t RegistryGetPlatform();
    ZQ_API void RegistrySetPlatform(std::uint32_t dwPlatform);
}
