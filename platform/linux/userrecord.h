// userrecord.h: the effective user's entry in the system's record of users.
#pragma once

#include <cerrno>
#include <pwd.h>
#include <unistd.h>

namespace plat
{
    /// The entry of the effective user, whatever the environment says.
    class UserRecord_c
    {
    public:
        /// Reads the entry. On failure Get returns null, and errno is the reason: ENOENT if there is no entry.
        UserRecord_c()
        {
            int const iError = getpwuid_r(geteuid(), &m_Entry, m_szTexts, sizeof m_szTexts, &m_pFound);
            if (m_pFound == nullptr)
            {
                errno = iError != 0 ? iError : ENOENT;
            }
        }

        UserRecord_c(UserRecord_c const &) = delete;
        UserRecord_c & operator=(UserRecord_c const &) = delete;

        /// Returns the entry, which is valid as long as the object.
        passwd const * Get() const { return m_pFound; }

    private:
        passwd m_Entry;
        passwd * m_pFound = nullptr;
        char m_szTexts[4096];   // that m_Entry points to
    };
}
