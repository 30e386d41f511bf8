#include "records/input/unpack.h"

#include <lzma.h>
#include <zlib.h>
#include <zstd.h>

#include <new>
#include <string>

// The library that reads archives could unpack these as well, but it gives nothing of the piece in
// which it meets damage, and what stands ahead of that is good.

namespace zel {

namespace {

// That the input ends is right at the start of a member only; anywhere else the file was cut off.
class GzipStream final : public ByteStream {
public:
    explicit GzipStream(ByteStream& packed) : packed_(packed) {
        constexpr int gzipWindow = 15 + 16;
        ready_ = ::inflateInit2(&stream_, gzipWindow) == Z_OK;
    }
    ~GzipStream() override { ::inflateEnd(&stream_); }
    GzipStream(const GzipStream&) = delete;
    GzipStream& operator=(const GzipStream&) = delete;

    long Read(char* buffer, std::size_t size, std::string* error) override {
        stream_.next_out = reinterpret_cast<Bytef*>(buffer);
        stream_.avail_out = static_cast<uInt>(size);
        while (ready_ && stream_.avail_out == size) {
            if (stream_.avail_in == 0 && !Refill(error))
                return atMemberStart_ && error->empty() ? 0 : Broken(error);
            const int result = ::inflate(&stream_, Z_NO_FLUSH);
            atMemberStart_ = result == Z_STREAM_END;
            // Several packed members may follow one another.
            if (result == Z_STREAM_END ? ::inflateReset(&stream_) != Z_OK : result != Z_OK)
                return Broken(error);
        }
        return ready_ ? static_cast<long>(size - stream_.avail_out) : Broken(error);
    }

private:
    bool Refill(std::string* error) {
        const long got = packed_.Read(input_, sizeof(input_), error);
        stream_.next_in = reinterpret_cast<Bytef*>(input_);
        stream_.avail_in = got > 0 ? static_cast<uInt>(got) : 0;
        return got > 0;
    }
    static long Broken(std::string* error) {
        if (error->empty())
            *error = "the gzip data is damaged or cut off";
        return -1;
    }

    ByteStream& packed_;
    z_stream stream_{};
    char input_[1U << 16];
    bool ready_ = false;
    bool atMemberStart_ = true;
};

// The library itself goes on from one packed piece to the next, and is told when the input has
// ended, since only it knows whether that is the right place.
class XzStream final : public ByteStream {
public:
    explicit XzStream(ByteStream& packed) : packed_(packed) {
        ready_ = ::lzma_stream_decoder(&stream_, UINT64_MAX, LZMA_CONCATENATED) == LZMA_OK;
    }
    ~XzStream() override { ::lzma_end(&stream_); }
    XzStream(const XzStream&) = delete;
    XzStream& operator=(const XzStream&) = delete;

    long Read(char* buffer, std::size_t size, std::string* error) override {
        stream_.next_out = reinterpret_cast<std::uint8_t*>(buffer);
        stream_.avail_out = size;
        while (ready_ && !ended_ && !damaged_ && stream_.avail_out == size) {
            if (stream_.avail_in == 0 && !inputEnded_ && !Refill(error))
                return -1;
            const lzma_ret result = ::lzma_code(&stream_, inputEnded_ ? LZMA_FINISH : LZMA_RUN);
            ended_ = result == LZMA_STREAM_END;
            damaged_ = !ended_ && result != LZMA_OK;
            if (damaged_)
                break;
        }
        // What was unpacked ahead of the damage is good, and is given first.
        const auto unpacked = static_cast<long>(size - stream_.avail_out);
        if (unpacked > 0 || !damaged_)
            return unpacked;
        *error = "the xz data is damaged or cut off";
        return -1;
    }

private:
    bool Refill(std::string* error) {
        const long got = packed_.Read(input_, sizeof(input_), error);
        inputEnded_ = got == 0;
        stream_.next_in = reinterpret_cast<const std::uint8_t*>(input_);
        stream_.avail_in = got > 0 ? static_cast<std::size_t>(got) : 0;
        return got >= 0;
    }

    ByteStream& packed_;
    lzma_stream stream_ = LZMA_STREAM_INIT;
    char input_[1U << 16];
    bool ready_ = false;
    bool inputEnded_ = false;
    bool ended_ = false;
    bool damaged_ = false;
};

// A frame that is not finished when the input ends was cut off.
class ZstdStream final : public ByteStream {
public:
    explicit ZstdStream(ByteStream& packed) : packed_(packed), stream_(::ZSTD_createDStream()) {
        if (stream_ == nullptr)
            throw std::bad_alloc();
    }
    ~ZstdStream() override { ::ZSTD_freeDStream(stream_); }
    ZstdStream(const ZstdStream&) = delete;
    ZstdStream& operator=(const ZstdStream&) = delete;

    long Read(char* buffer, std::size_t size, std::string* error) override {
        ZSTD_outBuffer out{buffer, size, 0};
        while (!damaged_ && out.pos == 0) {
            if (in_.pos == in_.size && !outputWaits_ && !Refill(error))
                return isFrameDone_ && error->empty() ? 0 : Broken(error);
            const std::size_t left = ::ZSTD_decompressStream(stream_, &out, &in_);
            damaged_ = ::ZSTD_isError(left) != 0;
            isFrameDone_ = left == 0;
            outputWaits_ = out.pos == out.size && !isFrameDone_;
        }
        return out.pos > 0 ? static_cast<long>(out.pos) : Broken(error);
    }

private:
    bool Refill(std::string* error) {
        const long got = packed_.Read(input_, sizeof(input_), error);
        in_ = {input_, got > 0 ? static_cast<std::size_t>(got) : 0, 0};
        return got > 0;
    }
    static long Broken(std::string* error) {
        if (error->empty())
            *error = "the zstd data is damaged or cut off";
        return -1;
    }

    ByteStream& packed_;
    ZSTD_DStream* const stream_;
    ZSTD_inBuffer in_{nullptr, 0, 0};
    char input_[1U << 16];
    bool damaged_ = false;
    bool isFrameDone_ = true;
    bool outputWaits_ = false;  // the library has more for the next call
};

}  // namespace

std::unique_ptr<ByteStream> MakeUnpacker(std::string_view head, ByteStream& packed) {
    using namespace std::string_view_literals;
    if (head.starts_with("\x1f\x8b"))
        return std::make_unique<GzipStream>(packed);
    if (head.starts_with("\xFD\x37zXZ\0"sv))
        return std::make_unique<XzStream>(packed);
    if (head.starts_with("\x28\xB5\x2F\xFD"))
        return std::make_unique<ZstdStream>(packed);
    return nullptr;
}

}  // namespace zel
