// registry.h: a store of named, typed values under hierarchical keys, one tree for the machine and one for the user.
//
// Key paths separate with `\`; keys and names are told apart without regard to ASCII case. The store is a folder on
// disk: a value is replaced as a whole, so that a reader, or a process that was killed, sees the old value or the new
// one. A value that was damaged on disk is no value. Names may hold any byte but 0, and a key's name no `\`; each name
// is limited to 255 bytes, or about 80 of letters beyond ASCII, and a value to 16 MiB. An empty key path is the tree
// itself, an empty or null name the key's unnamed value. Any thread, any process.
#pragma once

#include "platform/compiler.h"

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
        None = 0,
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
}
