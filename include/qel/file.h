#ifndef QEL_FILE_H_
#define QEL_FILE_H_

#include <cstdint>

#include <qel/export.h>

namespace qel {

// A file object over a buffered stream. It opens one named file either for reading or for
// writing, keeps its own read position and write position and moves the stream to the
// right one before every transfer, so that reads and writes never disturb each other.
// Offsets are 64-bit. It can cap the bytes that write() puts into the file.
//
// read(), write() and writetohead() are serialised by a lock of the object's own and may be
// called from several threads at once. The other operations take no lock: a caller must not
// run them at the same time as any other operation on the same object.
//
// Opening and closing keep the read and write positions, the limit and its count; only a
// new object starts them at 0, 0, no limit and 0. Nothing here logs or sets the error slot.
class QEL_EXPORT FileWrapper {
public:
    // Returns a new file object with nothing opened, owned by the caller (delete it through
    // this interface); never null.
    static FileWrapper* create();

    // Closes an open file.
    virtual ~FileWrapper();
    // True while a file is open.
    virtual bool open() const = 0;
    // Opens `name`: for reading when `readOnly` (the file must exist), else for writing,
    // which creates the file or empties it. `textMode` false opens in binary mode. With
    // `loop`, a read that begins at the end the file had when it was opened starts again at
    // offset 0. Returns 0 when opened, and also when a file is already open (which stays
    // open under its old name); -1 when the system cannot open it (the object stays closed
    // but keeps the new name) or `name` is null (which changes nothing).
    virtual int openFile(const char* name, bool readOnly, bool loop, bool textMode) = 0;
    // Closes the open file, if any.
    virtual void closeFile() = 0;
    // Caps the bytes that write() may put into the file, counted from the object's creation
    // over every write() made while a limit was set; 0 removes the limit. Changing the limit
    // does not reset the count. Values of 2^63 and more act as 2^63 - 1.
    virtual void setMaxFileSize(unsigned long limit) = 0;
    // Pushes buffered bytes to the system. Returns 0, or -3 when no file is open.
    virtual int flush() = 0;
    // Copies as much of the last name given to openFile() as fits into `buffer` of `size`
    // bytes, zero-terminated. Returns the bytes put there, the zero included; 0 when `size`
    // is 0 or `buffer` is null, which writes nothing.
    virtual int fileName(char* buffer, unsigned long size) const = 0;
    // Returns the file's size in bytes, 0 when its end cannot be found, -1 when not open.
    virtual int64_t fileSize() = 0;
    // Writes text formatted as by printf at the write position, outside the limit and its
    // count. Returns the new write position; -1 when not open or `format` is null.
    __attribute__((format(printf, 2, 3))) virtual int64_t writeText(const char* format, ...) = 0;
    // Reads up to `count` bytes at the read position into `buffer`. Returns the bytes read
    // (fewer or 0 at the end of the file or on a write-only file); -1 when not open,
    // `buffer` is null or `count` is negative.
    virtual int read(void* buffer, int count) = 0;
    // Writes `count` bytes of `buffer` at the write position; under a limit only the bytes
    // that still fit. Returns the bytes written, 0 once the limit is used up; -1 when not
    // open, `buffer` is null or `count` is negative (nothing is read from the buffer then).
    virtual int write(const void* buffer, int count) = 0;
    // Writes `count` bytes of `buffer` over the head of the file, outside the limit and its
    // count. A write position beyond `count` stays, otherwise it becomes `count`. Returns the
    // bytes written; -1 when not open, `buffer` is null or `count` is negative.
    virtual int writetohead(const void* buffer, int count) = 0;
    // Moves the read position to 0; the write position stays. Returns 0, -1 when the stream
    // cannot be sought, -6 when not open.
    virtual int rewind() = 0;
    // Returns the last name given to openFile() (empty before the first); the text belongs
    // to the object and stays valid until the next openFile() or the object's end.
    virtual const char* getFileName() = 0;
};

// Puts the absolute form of the existing `path`, with links and "." and ".." resolved, into
// `out` of `size` bytes, zero-terminated. Returns 0; -1 when either pointer is null, the path
// cannot be resolved or the result does not fit (`out` is then unchanged). Any thread.
QEL_EXPORT int getFullPathName(const char* path, char* out, unsigned int size);

}  // namespace qel

#endif  // QEL_FILE_H_
