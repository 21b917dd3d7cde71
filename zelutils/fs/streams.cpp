#include "zelutils/fs/streams.h"

#include "zelutils/fs/platform_file.h"

#include <algorithm>
#include <cstring>

namespace zel_fs {

// --- TAbstractStream -------------------------------------------------------

TAbstractStream::~TAbstractStream() = default;

std::int32_t TAbstractStream::Write(const void*, std::uint32_t, bool) { return kStreamFailed; }

std::int32_t TAbstractStream::Read(void*, std::uint32_t, std::uint32_t&) { return kStreamFailed; }

std::int32_t TAbstractStream::SetSize(std::uint64_t) { return kStreamFailed; }

std::int32_t TAbstractStream::Seek(std::int64_t, std::int32_t) { return kStreamFailed; }

std::uint64_t TAbstractStream::Tell() { return 0; }

// --- TFileStream -----------------------------------------------------------

TFileStream::TFileStream(const WCHAR* path, DWORD openMode) {
    int error = 0;
    handle_ = file_open(path, openMode, nullptr, &error);
    openError_ = error;
    if (handle_ == nullptr) {
        // A mode word without a disposition opens nothing.
        handle_ = INVALID_HANDLE_VALUE;
        openError_ = kStreamFailed;
    }
}

TFileStream::TFileStream(HANDLE handle) { Duplicate(handle); }

TFileStream::TFileStream(const TFileStream& other) : TAbstractStream(other) {
    if (other.IsOpen()) {
        Duplicate(other.handle_);
    } else {
        openError_ = other.openError_;
    }
}

TFileStream::~TFileStream() { file_close_reset(handle_); }

void TFileStream::Duplicate(HANDLE handle) {
    int failed = 0;
    handle_ = file_duplicate(handle, &failed);
    openError_ = failed;
}

std::int32_t TFileStream::Write(const void* data, std::uint32_t size, bool flush) {
    if (!IsOpen()) return openError_;
    // The plain write counts in signed 32 bits; a larger block is refused whole.
    if (size > 0x7FFFFFFFu) return kStreamShortWrite;
    if (file_write(handle_, data, static_cast<std::int32_t>(size)) != static_cast<std::int32_t>(size)) {
        return kStreamShortWrite;
    }
    if (flush && !file_flush(handle_)) return kStreamFlushFailed;
    return kStreamOk;
}

std::int32_t TFileStream::Read(void* data, std::uint32_t size, std::uint32_t& bytesRead) {
    if (!IsOpen()) return openError_;
    std::int32_t result = file_read(handle_, data, size);
    if (result < 0) {
        // The count stays 0 rather than the raw -1, so a caller adding it up
        // never goes wild.
        bytesRead = 0;
        return kStreamFailed;
    }
    bytesRead = static_cast<std::uint32_t>(result);
    return bytesRead < size ? kStreamShortRead : kStreamOk;
}

std::int32_t TFileStream::Seek(std::int64_t offset, std::int32_t whence) {
    if (!IsOpen()) return openError_;
    if (whence != kSeekBegin && whence != kSeekEnd) whence = kSeekCurrent;
    return file_seek(handle_, whence, offset) == ~std::uint64_t{0} ? kStreamFailed : kStreamOk;
}

std::uint64_t TFileStream::Tell() {
    if (!IsOpen()) return ~std::uint64_t{0};
    return file_seek(handle_, kSeekCurrent, 0);
}

// --- TMemoryStream ---------------------------------------------------------

TMemoryStream::TMemoryStream(std::uint32_t chunkSize) : chunkSize_(std::max<std::uint32_t>(chunkSize, 1)) {}

TMemoryStream::~TMemoryStream() = default;

std::uint8_t* TMemoryStream::ChunkAtPosition() {
    std::uint64_t index = position_ / chunkSize_;
    while (index >= chunks_.size()) {
        chunks_.push_back(std::make_unique<std::uint8_t[]>(chunkSize_));
    }
    return chunks_[index].get();
}

std::int32_t TMemoryStream::Write(const void* data, std::uint32_t size, bool) {
    const auto* source = static_cast<const std::uint8_t*>(data);
    std::uint32_t remaining = size;
    while (remaining > 0) {
        std::uint8_t* chunk = ChunkAtPosition();
        std::uint32_t offset = static_cast<std::uint32_t>(position_ % chunkSize_);
        std::uint32_t count = std::min(chunkSize_ - offset, remaining);
        std::memcpy(chunk + offset, source, count);
        source += count;
        remaining -= count;
        position_ += count;
        if (position_ > size_) size_ = position_;
    }
    return kStreamOk;
}

std::int32_t TMemoryStream::Read(void* data, std::uint32_t size, std::uint32_t& bytesRead) {
    bytesRead = 0;
    auto* target = static_cast<std::uint8_t*>(data);
    while (bytesRead < size && position_ < size_) {
        // A region that was never written reads as zeros.
        std::uint8_t* chunk = ChunkAtPosition();
        std::uint32_t offset = static_cast<std::uint32_t>(position_ % chunkSize_);
        std::uint64_t count = std::min<std::uint64_t>(
            {chunkSize_ - offset, size - bytesRead, size_ - position_});
        std::memcpy(target + bytesRead, chunk + offset, static_cast<std::size_t>(count));
        bytesRead += static_cast<std::uint32_t>(count);
        position_ += count;
    }
    return kStreamOk;
}

std::int32_t TMemoryStream::SetSize(std::uint64_t size) {
    size_ = size;
    if (position_ > size_) position_ = size_;
    return kStreamOk;
}

std::int32_t TMemoryStream::Seek(std::int64_t offset, std::int32_t whence) {
    if (whence == kSeekBegin) {
        position_ = offset < 0 ? 0 : std::min<std::uint64_t>(static_cast<std::uint64_t>(offset), size_);
        return kStreamOk;
    }
    std::uint64_t base = whence == kSeekEnd ? size_ : position_;
    std::uint64_t magnitude = offset < 0 ? 0 - static_cast<std::uint64_t>(offset) : 0;
    position_ = (offset >= 0 || magnitude <= base) ? base + static_cast<std::uint64_t>(offset) : 0;
    if (position_ > size_) size_ = position_;
    return kStreamOk;
}

std::uint64_t TMemoryStream::Tell() { return position_; }

// --- TBufferedStream -------------------------------------------------------

TBufferedStream::TBufferedStream(TAbstractStream* inner, bool ownsInner, std::uint32_t bufferSize)
    : inner_(inner),
      ownedInner_(ownsInner ? inner : nullptr),
      capacity_(std::max<std::uint32_t>(bufferSize, 1)) {
    buffer_ = std::make_unique<std::uint8_t[]>(capacity_);
}

TBufferedStream::~TBufferedStream() { Write(nullptr, 0, true); }

std::int32_t TBufferedStream::Write(const void* data, std::uint32_t size, bool flush) {
    const auto* source = static_cast<const std::uint8_t*>(data);
    std::uint32_t remaining = size;
    auto take = [&] {
        std::uint32_t count = std::min(capacity_ - position_, remaining);
        if (count == 0) return;
        std::memcpy(buffer_.get() + position_, source, count);
        source += count;
        remaining -= count;
        position_ += count;
        fill_ += count;
    };
    take();
    for (;;) {
        if (position_ == capacity_ || (flush && position_ != 0)) {
            std::int32_t result = inner_->Write(buffer_.get(), position_, false);
            position_ = 0;
            fill_ = 0;
            if (result != kStreamOk) return result;
        }
        if (remaining == 0) return kStreamOk;
        take();
    }
}

std::int32_t TBufferedStream::Read(void* data, std::uint32_t size, std::uint32_t& bytesRead) {
    bytesRead = 0;
    if (size == 0) return kStreamOk;
    auto* target = static_cast<std::uint8_t*>(data);
    bool endSeen = false;
    do {
        if (position_ == fill_) {
            position_ = 0;
            fill_ = 0;
            std::int32_t result = inner_->Read(buffer_.get(), capacity_, fill_);
            if (result != kStreamOk) return result;
            endSeen = fill_ < capacity_;
        }
        std::uint32_t count = std::min(fill_ - position_, size - bytesRead);
        std::memcpy(target + bytesRead, buffer_.get() + position_, count);
        position_ += count;
        bytesRead += count;
    } while (!endSeen && bytesRead < size);
    // Compares the bytes delivered with the bytes still missing, not with
    // the bytes asked for; callers written against this rule depend on it.
    return bytesRead < size - bytesRead ? kStreamShortRead : kStreamOk;
}

std::int32_t TBufferedStream::Seek(std::int64_t offset, std::int32_t whence) {
    position_ = 0;
    return inner_->Seek(offset, whence);
}

}  // namespace zel_fs
