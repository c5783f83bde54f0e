#include "SP/client/SPFileStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Dlna/DlnaLog.h"

SPFileStream::~SPFileStream() {
    if (m_pFile != nullptr) Close();
}

bool SPFileStream::Open(const char* path) {
    DLNA_LOG_I(DLNA_SP_TAG, "Binary Open() (name : %s)", path ? path : "(null)");
    if (m_pFile != nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "SPFileStream was not closed");
        return false;
    }
    // Opened without blocking and checked to be a regular file first: a
    // directory would announce a size it cannot deliver, and a FIFO would
    // block the transfer in open() forever. 64-bit offsets also on the 32-bit
    // camera.
    const int fd = path ? open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_LARGEFILE) : -1;
    struct stat64 st;
    bool ok = fd >= 0 && fstat64(fd, &st) == 0 && S_ISREG(st.st_mode) && fcntl(fd, F_SETFL, 0) == 0;
    FILE* file = ok ? fdopen(fd, "rb") : nullptr;
    if (file == nullptr) {
        if (fd >= 0) close(fd);
        DLNA_LOG_E(DLNA_SP_TAG, "Can't open the file char\"%s\"\n", path ? path : "(null)");
        return false;
    }
    m_pFile = file;
    m_uSize = static_cast<uint64_t>(st.st_size);
    m_uRemaining = m_uSize;
    DLNA_LOG_I(DLNA_SP_TAG, "file size = %lld", static_cast<long long>(m_uSize));
    return true;
}

void SPFileStream::Close() {
    DLNA_LOG_I(DLNA_SP_TAG, "Binary Close() (handle : %p)", static_cast<void*>(m_pFile));
    if (m_pFile != nullptr) {
        fclose(m_pFile);
        m_pFile = nullptr;
    }
    m_uRemaining = 0;
}

bool SPFileStream::GetData(unsigned char* buffer, unsigned long size, unsigned long* read) {
    if (read != nullptr) *read = 0;
    if (m_pFile == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "File is not opened");
        return false;
    }
    if (m_uRemaining == 0 || buffer == nullptr || read == nullptr) return false;
    const unsigned long want = m_uRemaining < size ? static_cast<unsigned long>(m_uRemaining) : size;
    const size_t got = fread(buffer, 1, want, m_pFile);
    if (got != want) {
        DLNA_LOG_E(DLNA_SP_TAG, "SPFileStream fread error");
        return false;
    }
    *read = static_cast<unsigned long>(got);
    m_uRemaining -= got;
    return true;
}

bool SPFileStream::EOS() const { return m_uRemaining == 0; }
