// registryfolder.h: the contents of a key's folder in the registry's store. See registry.cpp for the names there.
#pragma once

#include "platform/common/storedisk.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace plat
{
    /// The entries of a key's folder, in the disk's order.
    struct KeyContents_s
    {
        std::vector<std::string> dSubKeys;   // folded names
        std::vector<std::string> dValues;    // files
        std::vector<std::string> dOthers;    // files that go with the key: its record, and what writers left
        bool bForeign = false;               // something that is none of the store's
        bool bRead = false;                  // whole
    };
    KeyContents_s ReadKeyContents(StoreHandle_t hFolder);

    /// The name of a subkey as it was spelled when it was made, if that is still known; else the folded name.
    std::string SpellingOf(StoreHandle_t hFolder, std::string const & sFolded);

    /// Empties the folder of a key. False, with nothing deleted, if it has subkeys or holds what is not the store's.
    bool EmptyKey(StoreHandle_t hFolder);

    /// The sorted names of a key's subkeys, read again only after the folder changed. Changes by this process and, where
    /// folders count their subfolders, by others are seen at once; else a change of the same tick of the disk's clock
    /// as the reading is seen 20 ms later.
    class KeyListing_c
    {
    public:
        /// The folded names.
        std::deque<std::string> const & Read(StoreHandle_t hFolder);

        /// Whether the names are those of the folder.
        bool IsCurrent(StoreHandle_t hFolder) const;

        /// Counts a change of another folder that the listing's owner made.
        void CountChange() { ++m_nChanges; }

        /// Drops a name from a listing that was current until its owner deleted the subkey.
        void Drop(StoreHandle_t hFolder, std::string const & sName);

    private:
        std::deque<std::string> m_dNames;   // both ends are deleted from
        StoreStamp_s m_Stamp;
        unsigned m_nChanges = 0;
        std::int64_t m_tRead = 0;   // nanoseconds of the steady clock; 0 before the first reading
        bool m_bSettled = false;    // the last change was long before the reading
    };

    /// Counts a subkey made or deleted by this process, which outdates listings.
    void CountKeyChange();
}
