#include "zqcore/cserialize.h"

#include "zqcore/ccrc_internal.h"
#include "zqcore/cdebug_internal.h"
#include "zqcore/clog.h"
#include "zqcore/cserialize_internal.h"
#include "zqcore/cserializecheck.h"
#include "zqcore/ctexterror.h"

#include "platform/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <limits>

std::uint32_t const ARCHIVE_PARTICLE_SYSTEM_VERSION = 0x00020011;
std::uint32_t const ARCHIVE_MESH_VERSION = 0x0004000D;
std::uint32_t const ARCHIVE_ANIM_VERSION = 0x00020002;
std::uint32_t const ARCHIVE_COLMESH_VERSION = 0x00020004;
std::uint32_t const ARCHIVE_PROBTREE_VERSION = 0x00010000;
std::uint32_t const ARCHIVE_GAME_RECORD_VERSION = 0x00010000;
std::uint32_t const ARCHIVE_KILN_WORLD_VERSION = 0x00010000;
std::uint32_t const ARCHIVE_ACCOUNT_VERSION = 0x00010000;
std::uint32_t const ARCHIVE_SAVED_GAME_VERSION = 0x0002001D;
std::uint32_t const REPLICATE_VERSION = 0x00010000;
std::uint32_t const FILESYSTEMCACHE_VERSION = 0x00010002;
std::uint32_t const DIALOG_FILE_VERSION = 0x00010001;
std::uint32_t const CAMERATRACK_FILE_VERSION = 0x00010001;
std::uint32_t const FJORDTRACK_FILE_VERSION = 0x00010000;

namespace
{
    constexpr int WORD_BYTES = 4;   // of an archive's version, a label, a length or a count
}

Serializeable_c::Serializeable_c(bool bIsReading, std::uint32_t dwVersion, bool)
    : m_bIsReading(bIsReading)
    , m_dwVersion(dwVersion)
{}

Serializeable_c::~Serializeable_c() = default;

bool Serializeable_c::Open()
{
    m_bOpened = true;
    if (!m_bIsReading)
    {
        Serialize(m_dwVersion);
        return true;
    }
    std::uint32_t dwFile = 0;
    Serialize(dwFile);
    return !m_bFailed && AcceptVersion(dwFile);
}

bool Serializeable_c::AcceptVersion(std::uint32_t dwFile)
{
    bool const bReadable = VersionIsReadable(dwFile, m_dwVersion);
    if (m_pResult && !bReadable)
    {
        StepBack(WORD_BYTES);
        Fail("version %d.%d, and %d.%d is the newest known", VersionMajor(dwFile), VersionMinor(dwFile),
            VersionMajor(m_dwVersion), VersionMinor(m_dwVersion));
        m_pResult->eState = ArchiveResult_t::OTHER_VERSION;
        return false;
    }
    if (VersionMajor(dwFile) != VersionMajor(m_dwVersion))
    {
        Abort("Serializeable_c: archive '%s' is v.%d.%d, and this binary only supports v.%d.%d",
            TextForLog(GetFileName()).GetBuffer(), VersionMajor(dwFile), VersionMinor(dwFile),
            VersionMajor(m_dwVersion), VersionMinor(m_dwVersion));
    }
    if (VersionMinor(dwFile) > VersionMinor(m_dwVersion))
    {
        Log("Serializeable_c: archive is newer version then executable, %x", dwFile);
        return false;
    }
    m_dwVersion = dwFile;
    return true;
}

bool Serializeable_c::Close()
{
    return true;
}

int Serializeable_c::GetPosition() const
{
    return -1;
}

int Serializeable_c::GetLeft() const
{
    int const iPosition = m_bIsReading && !m_bFailed ? GetPosition() : -1;
    int const nLength = iPosition >= 0 ? GetLength() : 0;
    return nLength > 0 ? nLength - iPosition : -1;
}

// Copies bytes that the memory for small values does not hold, and returns true. Returns false on failure.
bool Serializeable_c::SerializeRun(void * pData, std::size_t nBytes)
{
    constexpr std::size_t MAX_STEP = 1 << 30;   // bytes of one call, which counts them by int
    auto * pNext = static_cast<unsigned char *>(pData);
    for (std::size_t nLeft = nBytes; nLeft > 0;)
    {
        std::size_t const nStep = std::min(nLeft, MAX_STEP);
        if (!Serialize(pNext, static_cast<int>(nStep)))
        {
            return false;
        }
        pNext += nStep;
        nLeft -= nStep;
    }
    return true;
}

// Stores a number of elements, or loads one that the memory for small values does not hold or that is wrong.
// Returns the number, or 0 if the archive has failed.
int Serializeable_c::SerializeCountSlowly(std::size_t nElements, std::size_t nBytesEach)
{
    bool const bCounts = nElements <= std::size_t{ std::numeric_limits<int>::max() };
    int nCount = bCounts ? static_cast<int>(nElements) : -1;
    if (m_bIsReading || bCounts)
    {
        Serialize(nCount);
    }
    if (m_bIsReading && !m_bFailed && nCount > 0)
    {
        int const nLeft = GetLeft();
        bool const bThere =
            nLeft < 0 || static_cast<std::size_t>(nCount) <= static_cast<std::size_t>(nLeft) / nBytesEach;
        nCount = bThere ? nCount : -1;
    }
    if (nCount < 0)
    {
        StepBack(WORD_BYTES);
        Fail("a number of elements that the rest cannot hold");
    }
    return m_bFailed ? 0 : nCount;
}

int Serializeable_c::SerializeVersion(char const * sType, int iNewest)
{
    ZQ_ASSERT(iNewest >= 1 && iNewest <= std::numeric_limits<std::uint16_t>::max());
    auto nVersion = static_cast<std::uint16_t>(iNewest);
    Serialize(nVersion);
    if (nVersion == 0 || nVersion > iNewest)
    {
        if (!m_pResult)
        {
            Log("Serializeable_c: '%s' in archive '%s' is of version %d, and this binary only supports %d", sType,
                TextForLog(GetFileName()).GetBuffer(), nVersion, iNewest);
        }
        StepBack(sizeof nVersion);
        Fail("'%s' is of version %d, and %d is the newest known", sType, nVersion, iNewest);
    }
    return m_bFailed ? iNewest : nVersion;
}

void Serializeable_c::Fail(char const * fmt, ...)
{
    if (m_pResult && !m_bFailed)
    {
        char szText[decltype(m_pResult->sWhyNot)::Capacity()];
        va_list Arguments;
        va_start(Arguments, fmt);
        std::vsnprintf(szText, sizeof szText, fmt, Arguments);
        va_end(Arguments);
        char const * szRest = szText;
        plat::TextEscape(m_pResult->sWhyNot.GetBuffer(), sizeof szText, szRest, plat::Controls_e::None);
        m_pResult->eState = ArchiveResult_t::DAMAGED;
        m_pResult->iPosition = std::max(GetPosition(), 0);
    }
    m_bFailed = true;
    m_pEnd = m_pPos;
}

void Serializeable_c::Label(char const * sName, std::uint32_t dwLabel)
{
    if (!StepLabel(dwLabel))
    {
        if (m_pResult)
        {
            StepBack(WORD_BYTES);
            return Fail("label '%s' expected", sName);
        }
        Abort("Label '%s' expected in '%s' file.", sName, TextForLog(GetFileName()).GetBuffer());
    }
}

void Serializeable_c::LabelCrc32(char const * sName)
{
    if (!StepLabel(Crc32OfText(sName)))
    {
        if (m_pResult)
        {
            StepBack(WORD_BYTES);
            return Fail("chunk or CRC-32 label '%s' expected", sName);
        }
        Abort("LabelCrc32 '%s' expected in '%s' fille.", sName, TextForLog(GetFileName()).GetBuffer());
    }
}

// Stores a label and returns true, or returns whether the file has it here. Returns true for a label that can't
// be read, which fails the archive.
bool Serializeable_c::StepLabel(std::uint32_t dwLabel)
{
    if (!m_bIsReading)
    {
        Serialize(dwLabel);
        return true;
    }
    std::uint32_t const dwFile = LabelRead();
    return dwFile == dwLabel || m_bFailed;
}

std::uint32_t Serializeable_c::LabelRead()
{
    ZQ_ASSERT(m_bIsReading);
    std::uint32_t dwLabel = 0;
    if (m_bIsReading)
    {
        Serialize(dwLabel);
    }
    return dwLabel;
}

void Serializeable_c::SerializeString(char * sBuffer, int iBufLength)
{
    ZQ_ASSERT(sBuffer && iBufLength > 0);
    if (!sBuffer || iBufLength <= 0)
    {
        return Fail();
    }
    if (m_bIsReading)
    {
        ReadString(sBuffer, iBufLength);
    }
    else
    {
        StoreText(sBuffer, StrLengthMax(sBuffer, static_cast<std::size_t>(iBufLength - 1)));
    }
}

// Stores a text for which the memory for small values has no room, or fails the archive. Does not change the text.
void Serializeable_c::StoreLongText(char const * sText, std::size_t nLength)
{
    ZQ_ASSERT(!m_bIsReading);
    if (m_bIsReading)
    {
        return Fail();
    }
    SerializeCount(nLength);
    if (!m_bFailed)
    {
        SerializeBytes(const_cast<char *>(sText), nLength + 1);
    }
}

void Serializeable_c::ReadString(char * sBuffer, int iBufLength)
{
    int nLength = 0;
    Serialize(nLength);
    if (m_bFailed)
    {
        return;
    }
    bool const bFits = nLength >= 0 && nLength < iBufLength;
    ZQ_ASSERT_ESCAPED(bFits || IsChecked(), "Len < iBufLength", "text of %d characters in '%s' file, with room for %d",
        nLength, GetFileName(), iBufLength - 1);
    if (!bFits)
    {
        StepBack(WORD_BYTES);
        Fail("a text of %d characters, with room for %d", nLength, iBufLength - 1);
    }
    else if (SerializeBytes(sBuffer, static_cast<std::size_t>(nLength) + 1))
    {
        sBuffer[nLength] = '\0';
    }
}

void Serializeable_c::SerializeVector3(__m128 & vValue)
{
    SerializeBytes(&vValue, 3 * sizeof(float));
}
