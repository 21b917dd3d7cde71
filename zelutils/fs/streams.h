/// @file
/// Binary byte streams with 64-bit positions and integer result codes: the
/// abstract TAbstractStream and three implementations, over a platform file
/// handle (TFileStream), over growable chunked memory (TMemoryStream), and a
/// write-back/read-ahead buffer in front of any other stream
/// (TBufferedStream). Nothing here throws: every operation reports one of
/// the result codes below, or, for a TFileStream whose file never opened,
/// the open error code of the platform file layer.
#pragma once

#include "zelutils/platform/windef.h"
#include "zelutils/zel_api.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace zel_fs {

/// Result codes shared by all streams.
enum StreamResult : std::int32_t {
    kStreamOk = 0,
    kStreamFailed = -1,       ///< not supported, or a platform failure
    kStreamShortWrite = -16,  ///< fewer bytes written than asked
    kStreamShortRead = -17,   ///< end of data before the bytes asked for
    kStreamFlushFailed = -18, ///< data written, but the flush to the medium failed
};

/// Seek origins.
enum StreamWhence : std::int32_t { kSeekBegin = 0, kSeekCurrent = 1, kSeekEnd = 2 };

/// A byte stream. The base class supports nothing: writes, reads, size
/// changes and seeks return -1 and Tell returns 0.
class ZEL_API TAbstractStream {
public:
    virtual ~TAbstractStream();
    /// Writes size bytes; flush asks for the data to reach the medium.
    virtual std::int32_t Write(const void* data, std::uint32_t size, bool flush);
    /// Reads up to size bytes; bytesRead receives the count delivered.
    virtual std::int32_t Read(void* data, std::uint32_t size, std::uint32_t& bytesRead);
    /// Sets the stream's size.
    virtual std::int32_t SetSize(std::uint64_t size);
    /// Moves the position; whence is one of StreamWhence.
    virtual std::int32_t Seek(std::int64_t offset, std::int32_t whence);
    /// The current position.
    virtual std::uint64_t Tell();
};

/// A stream over a platform file handle that it owns. A stream whose file
/// could not be opened (or whose handle could not be duplicated) answers
/// every Read, Write and Seek with the stored open error and Tell with all
/// ones. SetSize is not supported.
class ZEL_API TFileStream : public TAbstractStream {
public:
    /// Opens path with an open-mode word of the platform file layer (0x21
    /// reads, 0x48 creates for writing).
    TFileStream(const WCHAR* path, DWORD openMode);
    /// Works on a duplicate of handle; the caller keeps (and closes) its own.
    explicit TFileStream(HANDLE handle);
    /// Works on a duplicate of other's handle (or keeps its open error).
    TFileStream(const TFileStream& other);
    TFileStream& operator=(const TFileStream&) = delete;
    ~TFileStream() override;

    /// The stored open error: 0 when the file is open.
    std::int32_t OpenError() const { return openError_; }
    /// True when the stream has a file.
    bool IsOpen() const { return handle_ != INVALID_HANDLE_VALUE; }

    std::int32_t Write(const void* data, std::uint32_t size, bool flush) override;
    std::int32_t Read(void* data, std::uint32_t size, std::uint32_t& bytesRead) override;
    std::int32_t Seek(std::int64_t offset, std::int32_t whence) override;
    std::uint64_t Tell() override;

private:
    void Duplicate(HANDLE handle);

    HANDLE handle_ = INVALID_HANDLE_VALUE;
    std::int32_t openError_ = 0;
};

/// A growable stream in memory, made of zero-filled chunks allocated when
/// first touched and kept until the stream dies. Every operation succeeds.
/// Seeks are deliberately asymmetric: an absolute seek never goes past the
/// end, while a relative seek (from the position or the end) past the end
/// extends the stream, the new region reading as zeros.
class ZEL_API TMemoryStream : public TAbstractStream {
public:
    /// chunkSize bytes per chunk (512 by default; 0 is taken as 1).
    explicit TMemoryStream(std::uint32_t chunkSize = 512);
    TMemoryStream(const TMemoryStream&) = delete;
    TMemoryStream& operator=(const TMemoryStream&) = delete;
    ~TMemoryStream() override;

    /// Writes at the position, growing the stream; the flush flag is ignored.
    std::int32_t Write(const void* data, std::uint32_t size, bool flush) override;
    /// Reads from the position up to the size; at the end it delivers 0
    /// bytes and still returns 0 (never -17).
    std::int32_t Read(void* data, std::uint32_t size, std::uint32_t& bytesRead) override;
    /// Sets the size, pulling the position back to it when beyond; keeps memory.
    std::int32_t SetSize(std::uint64_t size) override;
    std::int32_t Seek(std::int64_t offset, std::int32_t whence) override;
    std::uint64_t Tell() override;

    /// The logical size in bytes.
    std::uint64_t Size() const { return size_; }

private:
    // The chunk holding the position, allocating chunks up to it.
    std::uint8_t* ChunkAtPosition();

    std::vector<std::unique_ptr<std::uint8_t[]>> chunks_;
    std::uint64_t size_ = 0;
    std::uint64_t position_ = 0;
    std::uint32_t chunkSize_;
};

/// A buffer in front of another stream: writes gather until the buffer is
/// full or a flush is asked for, reads are served from blocks read ahead.
/// The inner stream is always written with flush false. Seek drops the
/// buffer position without writing pending output, so callers flush
/// (Write(nullptr, 0, true)) before seeking a buffered writer and do not
/// mix seeks with buffered reads. The stream reports no position (Tell is
/// 0) and no size changes (SetSize is -1).
class ZEL_API TBufferedStream : public TAbstractStream {
public:
    /// Buffers inner with bufferSize bytes (0 is taken as 1); destroys
    /// inner with the buffered stream when ownsInner is set.
    TBufferedStream(TAbstractStream* inner, bool ownsInner, std::uint32_t bufferSize);
    TBufferedStream(const TBufferedStream&) = delete;
    TBufferedStream& operator=(const TBufferedStream&) = delete;
    /// Writes pending output to the inner stream first.
    ~TBufferedStream() override;

    std::int32_t Write(const void* data, std::uint32_t size, bool flush) override;
    std::int32_t Read(void* data, std::uint32_t size, std::uint32_t& bytesRead) override;
    std::int32_t Seek(std::int64_t offset, std::int32_t whence) override;

private:
    TAbstractStream* inner_;
    std::unique_ptr<TAbstractStream> ownedInner_;
    std::unique_ptr<std::uint8_t[]> buffer_;
    std::uint32_t capacity_;
    std::uint32_t position_ = 0;
    std::uint32_t fill_ = 0;
};

}  // namespace zel_fs
