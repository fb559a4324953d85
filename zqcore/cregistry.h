// cregistry.h: typed values under hierarchical keys, in the machine's store or the user's.
//
// A Registry_c has a root tree and at most one open key, on which all value operations work. Key paths separate with
// `\`; keys and names compare without regard to ASCII case, may hold any byte that text allows and are limited to
// 255 bytes each. Results are 1 and 0; nothing is logged, and what fails leaves the caller's variables alone unless stated
// otherwise. Values are replaced as a whole: other processes, and a process that was killed, see the old one or the new
// one.
//
// An object belongs to one thread; any number of objects and processes may share the store. Each operation goes to the
// disk and costs from 10 us up.
#pragma once

#include "zqcore/cconfig.h"

#include "platform/registry.h"

/// What GetDataInfo tells of a value: its type, with the numbers of plat::RegistryType_e, and its size in bytes.
struct _tag_DATA_INFO
{
    std::uint32_t dwType;
    std::uint32_t dwSize;
};

/// What GetKeyInfo tells of a key. Lengths are in bytes. On a system that counts names in 16-bit units (platform 2) the
/// two lengths of names are doubled.
struct _tag_KEY_INFO
{
    std::uint32_t dwSubKeys;
    std::uint32_t dwMaxSubKeyLength;   // with the terminator
    std::uint32_t dwValues;
    std::uint32_t dwMaxValueNameLength;   // without it
    std::uint32_t dwMaxValueLength;
    plat::FileTime_t ftLastWrite;   // 100-nanosecond ticks since 1601
};

class ZQ_API Registry_c
{
public:
    /// No key is open at first.
    explicit Registry_c(plat::RegistryTree_e hRoot = plat::RegistryTree_e::User);
    ~Registry_c();
    Registry_c(Registry_c const &) = delete;
    Registry_c & operator=(Registry_c const &) = delete;

    /// Closes the open key and opens another by its path from the root; CreateKey, and OpenKey with bCreate, make it at
    /// need. A key that the user may only read is opened too; what would change it fails. After a failure no key is
    /// open.
    int CreateKey(char const * sName);
    int OpenKey(char const * sName, int bCreate);

    /// Deletes a key by its path from the open one: without bRecursive only one without subkeys. With an empty name it
    /// is the open key itself, on which nothing works any more. A recursive deletion that fails may have deleted a part.
    int DeleteKey(char const * sName, int bRecursive);

    /// The name of a subkey of the open key as it was first spelled, in the order of the lower-case names. False, with
    /// sName unchanged, if there is none or if it does not fit into iSize bytes.
    bool EnumKey(int iIndex, char * sName, int iSize);

    /// Both zero the record first.
    int GetKeyInfo(_tag_KEY_INFO * pInfo);
    int GetDataInfo(char const * sName, _tag_DATA_INFO * pInfo);

    /// The value's size in bytes; -1 if there is none.
    int GetSizeValue(char const * sName);
    int ValueExists(char const * sName);
    int DeleteValue(char const * sName);

    /// Fails if the old name is unknown or the new one known. The new name is written before the old one is deleted, so
    /// that the value is never lost, and no other writer comes in between.
    int RenameValue(char const * sOldName, char const * sNewName);

    /// The value of 4 bytes of any type but text, else the default.
    int ReadInt(char const * sName, int iDefault);
    float ReadFloat(char const * sName, float fDefault);

    /// 1 if the value is of 4 bytes and the type that WriteValue of an int stores.
    int ReadValue(char const * sName, int * pValue);

    /// 1 if the value has no type and 8 bytes. No operation here writes one; other programs may.
    int ReadValue(char const * sName, double * pValue);

    /// 1 if the value has no type and 4 bytes, as WriteValue of a float stores it, or 8 bytes, a double that is
    /// narrowed. Any other value of up to 8 bytes gives 0 and sets *pValue to 0.
    int ReadValue(char const * sName, float * pValue);

    /// 1 if the value is of the type and not longer than dwSize. No terminator is stored or added: GetSizeValue tells
    /// how long a text is.
    int ReadString(char const * sName, char * sBuffer, std::uint32_t dwSize);
    int ReadData(char const * sName, void * pData, std::uint32_t dwSize);

    /// Store a value, whatever it was before. A float has no type.
    int WriteValue(char const * sName, int iValue);
    int WriteValue(char const * sName, float fValue);
    int WriteString(char const * sName, char const * sText);
    int WriteData(char const * sName, void const * pData, std::uint32_t dwSize);

private:
    bool Query(char const * sName, void * pData, std::size_t & nSize);
    int ReadTyped(char const * sName, plat::RegistryType_e eType, void * pData, std::size_t nSize);
    bool ReadNumber(char const * sName, void * pData);
    int Write(char const * sName, plat::RegistryType_e eType, void const * pData, std::size_t nSize);
    void Open(char const * sName, bool bCreate);

    plat::RegistryTree_e m_hRoot;
    plat::RegistryKey_t m_hKey = nullptr;
    std::uint32_t m_samDesired = plat::REGISTRY_ALL_ACCESS;          // rights that are asked for with every key
    plat::RegistryType_e m_dwType = plat::RegistryType_e::Untyped;   // found by the last typed read
    std::uint32_t m_dwPlatform;
};
