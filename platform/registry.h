// registry.h: the machine's and the user's store of named, typed values under keys.
//
// Each of the two is a tree of keys, which outlives the processes and which all of them see.
//
// - `\` separates the names in a key's path. An empty path is the tree itself. An empty or null name is the key's
//   unnamed value.
// - Keys and names compare without regard to ASCII case. They may hold any byte but 0. A key's name holds no `\`.
// - A name has at most 255 bytes and a value at most 16 MiB. A path has no limit.
// - A value is replaced as a whole: a reader sees the old value or the new one, also after a process was killed. A
//   damaged value is treated as missing.
// - Changes of one key wait for each other. A process that died does not delay others. While a process is stopped in a
//   change, changes of others fail after 5 seconds.
//
// Threads: any thread and any process. A child process can use the keys that its parent had open.
#pragma once

#include "platform/compiler.h"
#include "platform/files.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace plat
{
    /// The two trees of keys.
    enum class RegistryTree_e
    {
        Machine,
        User
    };

    /// The kinds of values, with the numbers of Windows (REG_DWORD and others), which the store keeps.
    enum class RegistryType_e : std::uint32_t
    {
        Untyped = 0,
        Text = 1,
        Binary = 3,
        Dword = 4
    };

    /// An open key, for one thread at a time. Null is a key that is not open: every operation on it fails. Others may
    /// delete an open key. All operations on it then fail, even if a new key of its name is created.
    struct RegistryKey_s;
    using RegistryKey_t = RegistryKey_s *;

    /// All rights, including the standard ones, with the number of Windows (KEY_ALL_ACCESS).
    inline constexpr std::uint32_t REGISTRY_ALL_ACCESS = 0xF003F;

    /// Counts of a key's subkeys and values, and lengths in bytes. Those of names do not include a terminator.
    struct RegistryKeyInfo_t
    {
        std::size_t nSubKeys = 0;
        std::size_t nMaxSubKeyLength = 0;
        std::size_t nValues = 0;
        std::size_t nMaxValueNameLength = 0;
        std::size_t nMaxValueLength = 0;
        FileTime_t tLastWrite = 0;   // last write or deletion of a value, or creation or deletion of a subkey
    };

    /// Sets the place of a tree, for a host or a test. Null or an empty text restores the system's own. Moves no keys.
    /// If the store is made of files, a place is a folder. Copies the text, cut at 4095 bytes. Requires that it is
    /// called at start-up.
    ZQ_API void RegistrySetFolder(RegistryTree_e eTree, char const * szFolder);

    /// Reads a value into the buffer. Before the call nSize is the size of the buffer. After it nSize is the size of
    /// the value and eType its type, whether it fits or not. If there is none, nSize is 0 and eType is unchanged.
    /// Returns false, with the buffer unchanged, if there is no such value or it does not fit.
    bool RegistryRead(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e & eType,
        void * pBuffer, std::size_t & nSize);

    /// Stores a value and creates its keys as needed. On failure returns false and keeps the previous value.
    bool RegistryWrite(RegistryTree_e eTree, char const * szKey, char const * szName, RegistryType_e eType,
        void const * pData, std::size_t nSize);

    /// Returns whether the key exists and the user can open it.
    bool RegistryKeyExists(RegistryTree_e eTree, char const * szKey);

    /// Opens a key by its path from the tree and returns it. With bCreate, creates it and the missing keys of its path.
    /// dwAccess has the rights that the caller needs. Those that the user does not have are left out: an operation that
    /// needs them fails later. Others may be granted too. Returns null if the key can't be opened or created.
    RegistryKey_t RegistryOpenKey(RegistryTree_e eTree, char const * szKey, std::uint32_t dwAccess, bool bCreate);

    /// Closes a key. Null does nothing.
    void RegistryCloseKey(RegistryKey_t hKey);

    /// Read and write a value of an open key, as RegistryRead and RegistryWrite above do. With eRequired, RegistryRead
    /// also fails for a value of any other type.
    bool RegistryRead(RegistryKey_t hKey, char const * szName, RegistryType_e & eType, void * pBuffer,
        std::size_t & nSize, std::optional<RegistryType_e> eRequired = {});
    bool RegistryWrite(
        RegistryKey_t hKey, char const * szName, RegistryType_e eType, void const * pData, std::size_t nSize);

    /// Reads the type and the size of a value. Returns false if there is none.
    bool RegistryQuery(RegistryKey_t hKey, char const * szName, RegistryType_e & eType, std::size_t & nSize);

    /// Deletes a value. Returns false on failure, for instance if there is none.
    bool RegistryDeleteValue(RegistryKey_t hKey, char const * szName);

    /// Renames a value. Writes the new value before it deletes the old one. A process killed in between leaves both. No
    /// other writer comes in between. On failure, for instance if the new name is in use, returns false and keeps the
    /// old value.
    bool RegistryRenameValue(RegistryKey_t hKey, char const * szOldName, char const * szNewName);

    /// Copies the name of a subkey, as it was spelled when it was created. Reads the names once, and again after a
    /// change. iIndex counts from 0 in the order of folded bytes. May see a change by another process up to 20 ms late.
    /// Returns false, and leaves the buffer unchanged, if there is no such subkey or the name with its terminator does
    /// not fit.
    bool RegistryEnumKey(RegistryKey_t hKey, std::size_t iIndex, char * szName, std::size_t nSize);

    /// Deletes a key and its values by its path from an open key. An empty path deletes the open key itself, which
    /// the caller still closes. Returns false, and deletes nothing, in these cases:
    /// - The path has separators only.
    /// - The key does not exist, or is a tree itself.
    /// - The key has subkeys, or its folder holds what is not the store's.
    ///
    /// Also returns false on any other failure, which may leave some of the key's values deleted.
    bool RegistryDeleteKey(RegistryKey_t hKey, char const * szKey);

    /// Deletes a key with its values and all subkeys at any depth, by its path from an open key. Deletes subkeys before
    /// their key, from the last to the first. An empty path means the open key itself, as in RegistryDeleteKey. Returns
    /// false on failure, which may leave a part deleted.
    bool RegistryDeleteTree(RegistryKey_t hKey, char const * szKey);

    /// Reads the numbers of a key's subkeys and values, the greatest lengths of their names and of the values, and the
    /// time of the key's last write. Reads all values. Returns false on failure.
    bool RegistryGetKeyInfo(RegistryKey_t hKey, RegistryKeyInfo_t & Info);

    /// Kind of system that counts names in 16-bit units. Its number is that of VER_PLATFORM_WIN32_NT (Windows SDK).
    inline constexpr std::uint32_t REGISTRY_PLATFORM_NT = 2;

    /// Return and set the kind of system. 0 counts names in bytes. REGISTRY_PLATFORM_NT counts them in 16-bit units, so
    /// that a name may have twice as many bytes as the store reports. A host that replaces the store sets its kind.
    std::uint32_t RegistryGetPlatform();
    ZQ_API void RegistrySetPlatform(std::uint32_t dwPlatform);
}
