// "usage-scan.bin": the scan cache's entries as a binary image, tied to the JSON file they
// mirror. Reading it costs a fraction of what parsing the JSON does, which is most of a
// rescan of unchanged logs.
//
// The image must give back exactly what reading the JSON file would: dates are kept in
// whole seconds as the JSON has them, and a cache holding anything that would not come
// back from JSON unchanged (a record's text that is not UTF-8, a date ISO 8601 cannot
// hold) gets no image at all. Reading an image applies the JSON reader's
// rules on numbers too, so not even a forged image can give counts whose sums overflow.
// Text is checked for UTF-8 only when written: the checksum vouches for it on the way
// back, and checking every string again would cost a third of the read.
#include "core/binary_image.h"
#include "core/checked.h"
#include "core/paths.h"
#include "core/scan_cache.h"

#include <sys/stat.h>

#include <cmath>

namespace usagekit {

namespace {

constexpr std::string_view kMagic = "TLYSCAN1";
// The fewest bytes an entry and a record take in an image.
constexpr size_t kEntrySize = 4 + 8 + 8 + 4;
constexpr size_t kRecordSize = 4 + 8 + 4 + 4 + 1 + 4 + 6 * 8;

enum Present : uint8_t { kProject = 1, kSession = 2, kCost = 4 };

bool isText(std::string_view text) {
    return simdjson::validate_utf8(text.data(), text.size());
}

int64_t nanoseconds(const struct timespec& time) {
    return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

void writeIdentity(BinaryImage::Writer& w, const ScanCache::FileIdentity& file) {
    w.i64(static_cast<int64_t>(file.device));
    w.i64(static_cast<int64_t>(file.inode));
    w.i64(file.size);
    w.i64(file.modified);
    w.i64(file.statusChanged);
}

ScanCache::FileIdentity readIdentity(BinaryImage::Reader& r) {
    ScanCache::FileIdentity file;
    file.device = static_cast<uint64_t>(r.i64());
    file.inode = static_cast<uint64_t>(r.i64());
    file.size = r.i64();
    file.modified = r.i64();
    file.statusChanged = r.i64();
    return file;
}

// What the JSON reader would refuse in a record's numbers.
bool hasReadableNumbers(const UsageRecord& record) {
    if (!std::isfinite(record.date.secondsSince1970) ||
        (record.reportedCostUSD && !std::isfinite(*record.reportedCostUSD)))
        return false;
    try {
        (void)record.total();
        (void)record.read();
    } catch (const OutOfRange&) {
        return false;
    }
    return true;
}

bool hasText(const UsageRecord& record) {
    for (std::string_view text :
         {std::string_view(record.id), std::string_view(record.model),
          std::string_view(record.kind), std::string_view(record.provider.id)})
        if (!isText(text)) return false;
    return (!record.project || isText(*record.project)) &&
           (!record.session || isText(*record.session));
}

bool writeRecord(BinaryImage::Writer& w, const UsageRecord& record) {
    if (!hasReadableNumbers(record) || !hasText(record)) return false;
    // The JSON file keeps whole seconds.
    const std::optional<Date> date = ISO8601::parse(ISO8601::format(record.date));
    if (!date) return false;
    w.text(record.id);
    w.f64(date->secondsSince1970);
    w.text(record.provider.id);
    w.text(record.model);
    w.u8((record.project ? kProject : 0) | (record.session ? kSession : 0) |
         (record.reportedCostUSD ? kCost : 0));
    if (record.project) w.text(*record.project);
    if (record.session) w.text(*record.session);
    w.text(record.kind);
    for (int64_t count : {record.calls, record.input, record.output, record.cacheRead,
                          record.cacheWrite, record.reasoning})
        w.i64(count);
    if (record.reportedCostUSD) w.f64(*record.reportedCostUSD);
    return true;
}

// Reads one record into `record`. Without `keepText` its texts are only stepped over: that
// checks a record, numbers and all, without allocating anything.
bool readRecord(BinaryImage::Reader& r, UsageRecord& record, bool keepText) {
    auto text = [&](std::string& into) {
        const std::string_view value = r.text();
        if (keepText) into = value;
    };
    text(record.id);
    record.date = Date{r.f64()};
    text(record.provider.id);
    text(record.model);
    const uint8_t present = r.u8();
    if (present & kProject) text(record.project.emplace());
    if (present & kSession) text(record.session.emplace());
    text(record.kind);
    for (int64_t* count : {&record.calls, &record.input, &record.output, &record.cacheRead,
                           &record.cacheWrite, &record.reasoning})
        *count = r.i64();
    if (present & kCost) record.reportedCostUSD = r.f64();
    return !r.failed() && present <= (kProject | kSession | kCost) && hasReadableNumbers(record);
}

}  // namespace

std::filesystem::path ScanCache::imageFile() {
    return TallyPaths::state("usage-scan.bin");
}

std::optional<ScanCache::FileIdentity> ScanCache::identity(const std::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return std::nullopt;
    return FileIdentity{static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino),
                        static_cast<int64_t>(info.st_size), nanoseconds(info.st_mtim),
                        nanoseconds(info.st_ctim)};
}

std::optional<std::string> ScanCache::image(const FileIdentity& of) const {
    if (version != kVersion) return std::nullopt;
    BinaryImage::Writer w;
    writeIdentity(w, of);
    w.u32(static_cast<uint32_t>(files.size()));
    for (const auto& [path, entry] : files) {
        // Paths go in as they are: the JSON file keeps any bytes of theirs (storedPath).
        if (!std::isfinite(entry.modified)) return std::nullopt;
        w.text(path);
        w.i64(entry.size);
        w.f64(entry.modified);
        w.u32(static_cast<uint32_t>(entry.recordCount()));
        // Packed records were written by this code and checked when read back.
        w.bytes(entry.packed.bytes());
        for (const UsageRecord& record : entry.records)
            if (!writeRecord(w, record)) return std::nullopt;
    }
    return w.sealed(kMagic);
}

std::optional<ScanCache> ScanCache::fromImage(std::string image, const FileIdentity& of) {
    const auto read = std::make_shared<PackedRecords::Image>();
    read->bytes = std::move(image);
    const auto payload = BinaryImage::unsealed(read->bytes, kMagic);
    if (!payload) return std::nullopt;
    BinaryImage::Reader r(*payload);
    if (readIdentity(r) != of) return std::nullopt;
    ScanCache cache;
    const uint32_t entries = r.count(kEntrySize);
    cache.files.reserve(entries);
    cache.files.holdText(read);
    // Room for as many records as the payload could hold at the least each takes: the
    // list never moves while it fills, and the room it does not use is never touched.
    read->records.reserve(r.rest().size() / kRecordSize);
    UsageRecord checked;
    for (uint32_t i = 0; i < entries; ++i) {
        const std::string_view path = r.text();
        Entry entry;
        entry.size = r.i64();
        entry.modified = r.f64();
        const uint32_t records = r.count(kRecordSize);
        const char* start = r.rest().data();
        const size_t first = read->records.size();
        for (uint32_t k = 0; k < records; ++k) {
            const char* at = r.rest().data();
            checked = UsageRecord();
            if (!readRecord(r, checked, false)) return std::nullopt;
            read->records.push_back(
                {checked.date.secondsSince1970,
                 std::string_view(at, static_cast<size_t>(r.rest().data() - at))});
        }
        if (r.failed() || !std::isfinite(entry.modified) || first > UINT32_MAX) return std::nullopt;
        entry.packed = PackedRecords(
            read.get(), std::string_view(start, static_cast<size_t>(r.rest().data() - start)),
            static_cast<uint32_t>(first), records);
        cache.files.emplaceKept(path, std::move(entry));
    }
    if (r.failed() || !r.atEnd()) return std::nullopt;
    cache.m_packedImage = read;
    return cache;
}

void ScanCache::PackedRecords::unpack(std::string_view bytes, UsageRecord& into) {
    BinaryImage::Reader r(bytes);
    readRecord(r, into, true);
}

void ScanCache::PackedRecords::appendTo(std::vector<UsageRecord>& out) const {
    for (const Record& record : records())
        unpack(record.bytes, out.emplace_back());
}

}  // namespace usagekit
