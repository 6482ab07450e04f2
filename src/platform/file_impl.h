#ifndef QEL_PLATFORM_FILE_IMPL_H_
#define QEL_PLATFORM_FILE_IMPL_H_

#include <cstdint>
#include <cstdio>
#include <string>

#include <qel/critical_section.h>
#include <qel/file.h>

namespace qel {

// The file object over a stdio stream opened and positioned with the 64-bit calls.
class QEL_EXPORT FileImpl : public FileWrapper {
public:
    FileImpl();
    ~FileImpl() override;
    FileImpl(const FileImpl&) = delete;
    FileImpl& operator=(const FileImpl&) = delete;

    bool open() const override;
    int openFile(const char* name, bool readOnly, bool loop, bool textMode) override;
    void closeFile() override;
    void setMaxFileSize(unsigned long limit) override;
    int flush() override;
    int fileName(char* buffer, unsigned long size) const override;
    int64_t fileSize() override;
    __attribute__((format(printf, 2, 3))) int64_t writeText(const char* format, ...) override;
    int read(void* buffer, int count) override;
    int write(const void* buffer, int count) override;
    int writetohead(const void* buffer, int count) override;
    int rewind() override;
    const char* getFileName() override;

private:
    // Moves the stream to `offset` and writes `count` bytes there; returns the bytes written.
    // The caller holds m_critSect and updates the write position.
    QEL_NO_EXPORT int writeAt(int64_t offset, const void* buffer, int count);
    // The stream's offset, or `fallback` when the stream cannot tell it.
    QEL_NO_EXPORT int64_t streamOffset(int64_t fallback);

    std::string m_fileName;
    std::string m_mode;
    FILE* m_stream;
    bool m_opened;
    bool m_loop;
    int64_t m_sizeAtOpen;
    int64_t m_readPos;       // guarded by m_critSect, except in rewind()
    int64_t m_writePos;      // guarded by m_critSect, except in writeText()
    int64_t m_maxFileSize;   // -1: no limit
    int64_t m_bytesWritten;  // guarded by m_critSect
    bool m_writeFailed;      // a write or flush failed; kept for the exported class's layout
    int64_t m_streamPos;     // where the stream stands after our last write; -1: unknown
    CriticalSectionWrapper* m_critSect;
};

}  // namespace qel

#endif  // QEL_PLATFORM_FILE_IMPL_H_
