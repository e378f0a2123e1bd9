#pragma once

#include <cstddef>

namespace Platform {

// "." and "..", which every listing skips.
inline bool isDots(const char *name)
{
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

// The entries of an open folder in the file system's own order. On Linux it reads with
// getdents64 into the caller's buffer, which saves readdir's per-folder fstat, fcntl and
// allocation: folder walks are dominated by system calls.
class DirReader
{
public:
    static constexpr size_t kBufferSize = 32 * 1024;

    // Does not take `fd`; `buffer` holds kBufferSize bytes and outlives the reader.
    DirReader(int fd, char *buffer);
    ~DirReader();
    DirReader(const DirReader &) = delete;
    DirReader &operator=(const DirReader &) = delete;

    // The next entry, "." and ".." included; false at the end or on a read error.
    // `type` is a DT_* value, DT_UNKNOWN when the file system does not say.
    bool next(const char *&name, unsigned char &type);

private:
    // Each implementation keeps only its own state: clang rejects unused private fields.
#if defined(__linux__)
    int m_fd;
    char *m_buffer;
    long m_length = 0;
    long m_offset = 0;
#else
    void *m_dir = nullptr; // readdir where there is no getdents64
#endif
};

} // namespace Platform
