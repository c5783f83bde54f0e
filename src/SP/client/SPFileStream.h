// The file a transfer reads its body from: a plain binary reader with 64-bit
// sizes (videos pass 4 GiB) that knows how much is left.
#ifndef CAMWIFI_SP_FILE_STREAM_H
#define CAMWIFI_SP_FILE_STREAM_H

#include <cstdint>
#include <cstdio>

class SPFileStream {
public:
    SPFileStream() = default;
    // Closes an open file.
    virtual ~SPFileStream();

    // Opens path for reading; false when a file is already open or path is
    // not a readable regular file.
    virtual bool Open(const char* path);
    // Closes the file (if open); nothing is left to read afterwards.
    virtual void Close();
    // Reads min(remaining, size) bytes into buffer. False with *read = 0 when
    // nothing is open, nothing is left, or the read came up short.
    virtual bool GetData(unsigned char* buffer, unsigned long size, unsigned long* read);
    // True when nothing is left to read.
    virtual bool EOS() const;

    uint64_t GetSize() const { return m_uSize; }
    uint64_t GetRemaining() const { return m_uRemaining; }

private:
    SPFileStream(const SPFileStream&) = delete;
    SPFileStream& operator=(const SPFileStream&) = delete;

    uint64_t m_uRemaining = 0;  // bytes not yet handed out
    uint64_t m_uSize = 0;       // size of the open file
    FILE* m_pFile = nullptr;    // the open file, or null
};

#endif
