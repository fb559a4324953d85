// cbuffer.h: bytes of a growing array, a file or a text, read through one interface.
//
// A consumer gets a Buffer_c and asks it for the first byte and the length. Both are valid until the buffer is changed
// or destroyed. Those of a FileBuffer_c also become invalid when its file is refreshed (File_c::Refresh).
//
// Ownership: an ArrayBuffer_c owns its bytes, a FileBuffer_c a reference to a file's contents, a StringBuffer_c
// nothing.
// Threads: a buffer belongs to one thread at a time.
// Cost: access is a virtual call. An ArrayBuffer_c allocates its storage. A FileBuffer_c opens its file, which may read
// it into memory.
// Failure: ExpandBuffer asserts, returns false and changes nothing. The constructors of FileBuffer_c and StringBuffer_c
// assert, and the buffer is empty. A FileBuffer_c whose file could not be read again is empty too.
//
//     auto const Send = [](Buffer_c const & Buffer)
//     {
//         int const nBytes = static_cast<int>(Buffer.GetBufferDataLength());
//         Log("Sent: %.*s", nBytes, static_cast<char const *>(Buffer.GetBufferData()));
//     };
//     ArrayBuffer_c Packet;
//     Packet.ExpandBuffer("join", 4);
//     Packet.ExpandBuffer(" team", 5);
//     Send(Packet);
//     Send(StringBuffer_c("leave"));
#pragma once

#include "zqcore/carray.h"

class File_c;

/// Base of all buffers.
class ZQ_API Buffer_c
{
public:
    Buffer_c() = default;
    virtual ~Buffer_c();

    /// Returns a pointer to the first byte. May return null if the length is 0. Requires that the caller does not write
    /// to the bytes.
    virtual void * GetBufferData() const = 0;

    /// Returns the number of bytes.
    virtual unsigned int GetBufferDataLength() const = 0;
};

/// Bytes that are appended piece by piece. The storage begins with 1024 bytes, and doubles until it is longer than the
/// contents.
class ZQ_API ArrayBuffer_c : public Buffer_c, public Array_T<char, 1024, 0>
{
public:
    static constexpr unsigned int MAX_BYTES = 0x3FFFFFFF;   // of the whole buffer; only ExpandBuffer checks it

    /// Appends a copy of nBytes bytes and returns true. The bytes may be the buffer's own. Previous data pointers
    /// become invalid. Asserts that pBytes is not null and that the whole fits MAX_BYTES, and otherwise returns false
    /// and changes nothing. Returns false at once if nBytes is 0.
    bool ExpandBuffer(void const * pBytes, unsigned int nBytes);

    void * GetBufferData() const override;
    unsigned int GetBufferDataLength() const override;
};

/// Contents of a file, open from the constructor to the destructor. Requires that the file object outlives the buffer.
class ZQ_API FileBuffer_c : public Buffer_c
{
public:
    /// Opens the file (FileOpen). Asserts that pFile is not null and can be opened. Otherwise the buffer is empty.
    explicit FileBuffer_c(File_c * pFile);
    ~FileBuffer_c() override;
    FileBuffer_c(FileBuffer_c const &) = delete;
    FileBuffer_c & operator=(FileBuffer_c const &) = delete;

    /// Return the file's contents and their length. Return null and 0 if the file could not be opened, or if a refresh
    /// could not read it again.
    void * GetBufferData() const override;
    unsigned int GetBufferDataLength() const override;

private:
    File_c * m_pFile;
};

/// A text without its terminator. Requires that the text outlives the buffer.
class ZQ_API StringBuffer_c : public Buffer_c
{
public:
    /// Refers to sText. Asserts that it is not null. Null counts as an empty text.
    explicit StringBuffer_c(char const * sText);

    void * GetBufferData() const override;
    unsigned int GetBufferDataLength() const override;

private:
    char const * m_szText;
    unsigned int m_nLength;
};
