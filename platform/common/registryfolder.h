// registryfolder.h: the contents of a key's folder in the registry's store. registry.cpp explains the names there.
#pragma once

#include "platform/common/storedisk.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace plat
{
    /// The entries of a key's folder, in the disk's order.
    struct KeyContents_t
    {
        std::vector<std::string> dSubKeys;   // folded names
        std::vector<std::string> dValues;    // files
        std::vector<std::string> dOthers;    // files that belong to the key: its record, and unfinished files
        bool bForeign = false;               // whether the folder holds something that is not the store's
        bool bRead = false;                  // whether the whole folder was read
    };

    /// The sorted names of a key's subkeys. They are read again if the folder may have changed. Changes by this process
    /// are seen at once. Changes by other processes are seen at once too if the folder's stamp shows them. If not, for
    /// instance in the same tick of the file system's clock as the previous reading, they are seen at most 20 ms later.
    class KeyListing_c
    {
    public:
        /// Reads the folder, unless IsCurrent returns true, and returns the folded names. If the folder can't be read
        /// to its end, returns those that were read.
        std::deque<std::string> const & Read(StoreHandle_t hFolder);

        /// Returns whether Read would return the names without reading them again.
        bool IsCurrent(StoreHandle_t hFolder) const;

        /// Keeps the listing current after its owner called CountKeyChange. Requires that the change was in another
        /// folder, or that Drop follows if the listing was current.
        void CountChange() { ++m_nChanges; }

        /// Removes the name of a subkey that the listing's owner has just deleted. Requires that the listing was
        /// current before.
        void Drop(StoreHandle_t hFolder, std::string const & sName);

    private:
        std::deque<std::string> m_dNames;   // names are deleted from both ends
        StoreStamp_t m_Stamp;
        unsigned m_nChanges = 0;    // calls of CountKeyChange that the listing allows for
        std::int64_t m_tRead = 0;   // nanoseconds of the steady clock; 0 without a complete reading
        bool m_bSettled = false;    // whether the last change was long before the reading
    };

    /// Reads the entries of a key's folder and returns them. On failure bRead is false.
    KeyContents_t ReadKeyContents(StoreHandle_t hFolder);

    /// Returns the name of a subkey as its record spells it. Returns the folded name if the subkey has no record, or
    /// if the record holds another name.
    std::string SpellingOf(StoreHandle_t hFolder, std::string const & sFolded);

    /// Empties the folder of a key and returns true. Returns false if a file can't be deleted. Others may then be gone.
    /// Returns false with errno ENOTEMPTY, and deletes nothing, in these cases:
    /// - the folder can't be read to its end.
    /// - it has subkeys.
    /// - it holds anything that is not the store's.
    bool EmptyKey(StoreHandle_t hFolder);

    /// Counts a subkey that this process created or deleted. All listings of this process then read their folders
    /// again, except those for which CountChange is called.
    void CountKeyChange();
}
