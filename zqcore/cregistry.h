// cregistry.h: typed values under hierarchical keys, in the machine's store or the user's.
//
// A Registry_c has a root tree and at most one open key, on which all value operations work. `\` separates the parts of
// a key's path. Keys and value names compare without regard to ASCII case. A part of a path and a value name each have
// at most 255 bytes, none of them 0. A value has at most 16 MiB. An empty path is the root itself. An empty or null
// value name is the key's unnamed value.
//
// Functions with a buffer and its size differ from the rule of cstring.h: nothing is cut. What does not fit is a
// failure, and the buffer stays unchanged. The same holds for text objects and for integers of any width
// (ctextvalue.h).
//
// Ownership: an object owns its open key. Results are copied to the caller.
// Threads: one thread for each object. Any number of objects and processes may share the store. A value is replaced as
// a whole: other processes, and those after a crash, see the old value or the new one. While a process is stopped in a
// change of a key, changes of that key by others fail after 5 seconds.
// Cost: each operation goes to the disk and needs 10 us or more.
// Failure: operations return 0 or false and log nothing. The caller's variables stay unchanged. Declarations that
// differ say so. Requires that pointers to results are not null, except in EnumKey, which returns false for null.
//
//     Registry_c Registry;   // the user's tree
//     if (Registry.CreateKey("Software\\Example\\Game"))
//     {
//         Registry.WriteValue("Width", 1280);
//     }
//     int const iWidth = Registry.ReadInt("Width", 640);
#pragma once

#include "zqcore/cstring.h"
#include "zqcore/ctextvalue.h"

#include "platform/files.h"
#include "platform/registry.h"

#include <algorithm>
#include <string>
#include <utility>

/// Type and size of a value.
struct _tag_DATA_INFO
{
    std::uint32_t dwType;   // number of plat::RegistryType_e
    std::uint32_t dwSize;   // bytes
};

/// Figures of a key. Lengths are in bytes. On a system that counts names in 16-bit units (platform 2) the two lengths
/// of names are doubled.
struct _tag_KEY_INFO
{
    std::uint32_t dwSubKeys;              // number of subkeys
    std::uint32_t dwMaxSubKeyLength;      // of the longest name of a subkey, terminator included
    std::uint32_t dwValues;               // number of values
    std::uint32_t dwMaxValueNameLength;   // of the longest name of a value, terminator not included
    std::uint32_t dwMaxValueLength;       // of the longest value
    plat::FileTime_t ftLastWrite;         // 100-nanosecond ticks since 1601
};

/// Access to one tree of the store.
class ZQ_API Registry_c
{
public:
    /// Makes an object for a tree, without an open key.
    explicit Registry_c(plat::RegistryTree_e hRoot = plat::RegistryTree_e::User);
    ~Registry_c();
    Registry_c(Registry_c const &) = delete;
    Registry_c & operator=(Registry_c const &) = delete;

    /// Close the open key, open another one by its path from the root, and return 1. CreateKey, and OpenKey with
    /// bCreate, create it if needed. Both functions also open a key that the user may only read, whose changes then
    /// fail. On failure return 0, and no key is open.
    int CreateKey(char const * sName);
    int OpenKey(char const * sName, int bCreate);

    /// Deletes a key by its path from the open one and returns 1. Without bRecursive it refuses a key with subkeys. An
    /// empty name deletes the open key itself, and every further operation on it fails. Returns 0 on failure, also for
    /// the root and for separators without a name. A failed deletion may have deleted values of the key, a recursive
    /// one also subkeys.
    int DeleteKey(char const * sName, int bRecursive);

    /// Write the name of a subkey of the open key, spelled as at its creation, and return true. iIndex counts from 0 in
    /// the order of the lower-case names. May see a change by another process up to 20 ms late. Return false, with
    /// sName unchanged, if there is none or if it does not fit into iSize bytes.
    bool EnumKey(int iIndex, char * sName, int iSize);
    template <TextObject_T TEXT>
    bool EnumKey(int iIndex, TEXT & sName)
    {
        String_T<256> sLongest;
        return EnumKey(iIndex, sLongest.GetBuffer(), std::min(TextMost<TEXT>(), sLongest.Capacity() - 1) + 1)
               && TextPut(sName, sLongest);
    }

    /// Fill the record and return 1. On failure return 0, and the record is zero.
    int GetKeyInfo(_tag_KEY_INFO * pInfo);
    int GetDataInfo(char const * sName, _tag_DATA_INFO * pInfo);

    /// Returns the value's size in bytes, or -1 if there is no such value.
    int GetSizeValue(char const * sName);

    /// Returns 1 if there is such a value, otherwise 0.
    int ValueExists(char const * sName);

    /// Deletes a value and returns 1. Returns 0 if there is none.
    int DeleteValue(char const * sName);

    /// Renames a value and returns 1. Writes the new name before it deletes the old one: a process that is killed in
    /// between leaves both. No other writer comes in between. Returns 0 if the old name does not exist or the new one
    /// does.
    int RenameValue(char const * sOldName, char const * sNewName);

    /// Return a value of 4 bytes and of any type but text. Return the default if there is none.
    int ReadInt(char const * sName, int iDefault);
    float ReadFloat(char const * sName, float fDefault);

    /// Copies a value to *pValue and returns 1, if it has 4 bytes and the type that WriteValue of an int stores.
    int ReadValue(char const * sName, int * pValue);

    /// Copies a value to *pValue and returns 1, if it has 8 bytes and no type. No operation here writes such a value,
    /// but other programs may.
    int ReadValue(char const * sName, double * pValue);

    /// Stores a value without a type in *pValue and returns 1. The value has 4 bytes, as WriteValue of a float stores
    /// it, or 8 bytes: a double, which is narrowed. Returns 0 and sets *pValue to 0 for any other value of up to 8
    /// bytes.
    int ReadValue(char const * sName, float * pValue);

    /// Reads what WriteValue of an int or a std::uint32_t stores, and returns 1. A signed type reads the 4 bytes as an
    /// int, an unsigned one as a std::uint32_t. Returns 0, with *pValue unchanged, for any other value and for a number
    /// outside the type.
    template <Integer_T T>
    int ReadValue(char const * sName, T * pValue)
    {
        using Stored_t = std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>;
        int iValue = 0;
        int const bRead = ReadValue(sName, &iValue) && std::in_range<T>(static_cast<Stored_t>(iValue));
        *pValue = bRead ? static_cast<T>(static_cast<Stored_t>(iValue)) : *pValue;
        return bRead;
    }

    /// Reads a text that is the name of an enumerator, and returns 1. Returns 0, with *pValue unchanged, for any other
    /// value and for a name that the table does not have.
    template <typename ENUM>
    int ReadValue(char const * sName, ENUM * pValue, EnumNames_T<ENUM> dNames)
    {
        String_T<256> sValue;
        return ReadString(sName, sValue) && EnumFromName(sValue, *pValue, dNames);
    }

    /// Copy a text of at most dwSize bytes, and return 1. No terminator is stored or added to a buffer: GetSizeValue
    /// returns a text's length. Return 0 if the text does not fit.
    int ReadString(char const * sName, char * sBuffer, std::uint32_t dwSize);
    template <TextObject_T TEXT>
    int ReadString(char const * sName, TEXT & sText)
    {
        // Most texts are short. Another process may store a longer one meanwhile.
        constexpr int MAX_TEXT = TextMost<TEXT>();
        int nLast = -1;
        for (int nText = std::min(MAX_TEXT, 255); nText > nLast && nText <= MAX_TEXT; nText = GetSizeValue(sName))
        {
            std::string sRead(static_cast<std::size_t>(nText) + 1, '\0');
            if (ReadText(sName, sRead.data(), sRead.size()))
            {
                return TextPut(sText, sRead.c_str());
            }
            nLast = nText;
        }
        return 0;
    }

    /// Copies a binary value, as ReadString does a text.
    int ReadData(char const * sName, void * pData, std::uint32_t dwSize);

    /// Store a value, replacing one of any type, and return 1. A float has no type. dwSize is in bytes.
    /// WriteString returns 0 if sText is null, and WriteData if pData is null and dwSize is above 0.
    int WriteValue(char const * sName, int iValue);
    int WriteValue(char const * sName, float fValue);
    int WriteValue(char const * sName, std::uint32_t nValue) { return WriteValue(sName, static_cast<int>(nValue)); }
    int WriteString(char const * sName, char const * sText);
    int WriteData(char const * sName, void const * pData, std::uint32_t dwSize);

private:
    bool Query(char const * sName, void * pData, std::size_t & nSize, plat::RegistryType_e const * pRequired = nullptr);
    int ReadTyped(char const * sName, plat::RegistryType_e eType, void * pData, std::size_t nSize);
    bool ReadNumber(char const * sName, void * pData);
    bool ReadText(char const * sName, char * sBuffer, std::size_t nSize);
    int Write(char const * sName, plat::RegistryType_e eType, void const * pData, std::size_t nSize);
    void Open(char const * sName, bool bCreate);

    plat::RegistryTree_e m_hRoot;
    plat::RegistryKey_t m_hKey = nullptr;
    std::uint32_t m_samDesired = plat::REGISTRY_ALL_ACCESS;          // rights requested with every key
    plat::RegistryType_e m_dwType = plat::RegistryType_e::Untyped;   // type that the last read found
    std::uint32_t m_dwPlatform;
};
