// registry.h: a store of named, typed values under hierarchical keys, one tree for the machine and one for the user.
//
// Key paths separate with `\`; keys and names are told apart without regard to ASCII case. The store is a folder on
// disk: a value is replaced as a whole, so that a reader, or a process that was killed, sees the old value or the new
// one. A value that was damaged on disk is no value. Names may hold any byte but 0, and a key's name no `\`. A name is
// limited to 255 bytes, whatever they are, a value to 16 MiB; a path has no limit. An empty key path is the tree
// itself, an empty or null name the key's unnamed value. Any thread, any process; a child process can go on with the
// keys that its parent had open.
//
// Changes of one key wait for each other. A process that died delays nobody; one that is stopped makes the others
// fail after 5 seconds.
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

    /// Puts a tree's folder elsewhere; null for the default (a folder of the machine's configuration, or of the
    /// user's: "/etc/zqcore/registry", ".config/zqcore/registry" in the user's home). The text is copied. Belongs to
    /// start-up.
    ZQ_API void RegistrySetFolder(RegistryTree_e eTree, char const * szFolder);

    /// Reads a value into the buffer. nSize is the buffer's size going in and the value's size coming out, whether it
    /// fits or not, 0 if there is none. False if there is no such value or it does not fit; the buffer is unchanged.
    bool RegistryRead(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e & eType,
        void * pBuffer, std::size_t & nSize);

    /// Stores a value, making its keys as needed; false on failure, with the former value in place.
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
    /// if there is no such subkey, or if the name with its terminator does not fit. The names are read from the disk
    /// once and again after a change; where the disk does not count subfolders, what another process changes in the
    /// same tick of the disk's clock as the reading is seen 20 ms later.
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

    /// The kind of system: 2 for one that counts names in 16-bit units, so that a name in bytes may be twice as long as
    /// it says. This store counts bytes and is of kind 0; a host that puts it in another's place may say so.
    std::uint32_t RegistryGetPlatform();
    ZQ_API void RegistrySetPlatform(std::uint32_t dwPlatform);
}
