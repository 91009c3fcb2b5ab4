// SPDX-License-Identifier: Apache-2.0
#include "platform/network/CacheFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <string_view>

#include "platform/media/Checksums.h"

namespace zaffo::network {

namespace {

constexpr uint32_t kMagic = 0x3143665a;  // "ZfC1"
enum Kind : uint32_t { kDescription = 1, kBytes = 2 };

/// Takes the text up to the next end of a line out of `rest`.
std::string_view takeLine(std::string_view& rest) {
  const std::size_t end = rest.find('\n');
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return line;
}

std::optional<int64_t> takeNumber(std::string_view& rest) {
  const std::string_view line = takeLine(rest);
  int64_t number = 0;
  const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
  if (error != std::errc() || end != line.data() + line.size()) return std::nullopt;
  return number;
}

bool readAll(int descriptor, int64_t place, std::span<uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::pread(descriptor, bytes.data(), bytes.size(), place);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    place += count;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return true;
}

/// 0, or an errno.
int writeAll(int descriptor, int64_t place, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::pwrite(descriptor, bytes.data(), bytes.size(), place);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count < 0 ? errno : EIO;
    place += count;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return 0;
}

}  // namespace

std::string CacheDescription::text() const {
  return std::to_string(size.value_or(-1)) + "\n" + std::to_string(servesRanges ? 1 : 0) + "\n" +
         std::to_string(storedAt) + "\n" + std::to_string(freshUntil) + "\n" + location + "\n" +
         validator.entityTag + "\n" + validator.lastModified + "\n";
}

std::optional<CacheDescription> CacheDescription::parse(const std::string& text) {
  std::string_view rest = text;
  const auto size = takeNumber(rest);
  const auto servesRanges = takeNumber(rest);
  const auto storedAt = takeNumber(rest);
  const auto freshUntil = takeNumber(rest);
  if (!size || *size < -1 || *size > kFarthest || !servesRanges || !storedAt || !freshUntil) {
    return std::nullopt;
  }
  CacheDescription description;
  if (*size >= 0) description.size = *size;
  description.servesRanges = *servesRanges == 1;
  description.storedAt = *storedAt;
  description.freshUntil = *freshUntil;
  description.location = takeLine(rest);
  description.validator.entityTag = takeLine(rest);
  description.validator.lastModified = takeLine(rest);
  return description;
}

/// What stands before each record.
struct CacheFile::Head {
  uint32_t magic = kMagic;
  uint32_t kind = 0;
  int64_t offset = 0;  ///< in the resource
  uint32_t length = 0;
  uint32_t checksum = 0;  ///< of the bytes behind it
  uint32_t unused = 0;
  uint32_t ownChecksum = 0;  ///< of what is above

  [[nodiscard]] uint32_t computed() const {
    return media::crc32Of({reinterpret_cast<const uint8_t*>(this), offsetof(Head, ownChecksum)});
  }
  [[nodiscard]] bool isWhole() const {
    return magic == kMagic && ownChecksum == computed() && length <= kLongestRecord &&
           offset >= 0 && offset <= kFarthest;
  }
};

std::unique_ptr<CacheFile> CacheFile::open(const std::string& path, int& failure) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (descriptor < 0) {
    failure = errno;
    return nullptr;
  }
  std::unique_ptr<CacheFile> file(new CacheFile(descriptor));
  failure = file->load();
  return failure ? nullptr : std::move(file);
}

CacheFile::~CacheFile() {
  ::close(descriptor_);
}

/// Finds the records, and cuts off what follows the last whole one. Bytes that nothing describes
/// are of no use.
int CacheFile::load() {
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  Head head;
  while (readAll(descriptor_, size_, {reinterpret_cast<uint8_t*>(&head), sizeof head}) &&
         head.isWhole()) {
    const int64_t place = size_ + static_cast<int64_t>(sizeof head);
    if (place + head.length > status.st_size) break;
    take(head, place);
    size_ = place + head.length;
  }
  if (!description_) {
    ranges_.clear();
    size_ = 0;
  }
  return size_ == status.st_size || ::ftruncate(descriptor_, size_) == 0 ? 0 : errno;
}

void CacheFile::take(const Head& head, int64_t place) {
  const CachedRanges::Run run{head.offset, head.length, place, head.checksum};
  if (head.kind == kBytes) ranges_.add(run);
  if (head.kind != kDescription) return;
  const auto bytes = read(run);
  if (bytes) description_ = CacheDescription::parse({bytes->begin(), bytes->end()});
}

int CacheFile::describe(const CacheDescription& description) {
  const std::string text = description.text();
  if (static_cast<int64_t>(text.size()) > kLongestRecord) return EMSGSIZE;
  int64_t place = 0;
  return write(kDescription, 0, {reinterpret_cast<const uint8_t*>(text.data()), text.size()},
               place);
}

int CacheFile::append(int64_t offset, std::span<const uint8_t> bytes, CachedRanges::Run& run) {
  if (static_cast<int64_t>(bytes.size()) > kLongestRecord) return EMSGSIZE;
  int64_t place = 0;
  const int failure = write(kBytes, offset, bytes, place);
  run = {offset, static_cast<int64_t>(bytes.size()), place, media::crc32Of(bytes)};
  return failure;
}

int CacheFile::write(uint32_t kind, int64_t offset, std::span<const uint8_t> bytes,
                     int64_t& place) {
  Head head;
  head.kind = kind;
  head.offset = offset;
  head.length = static_cast<uint32_t>(bytes.size());
  head.checksum = media::crc32Of(bytes);
  head.ownChecksum = head.computed();
  const auto* const front = reinterpret_cast<const uint8_t*>(&head);
  std::vector<uint8_t> record(front, front + sizeof head);
  record.insert(record.end(), bytes.begin(), bytes.end());
  const int failure = writeAll(descriptor_, size_, record);
  if (failure) {
    static_cast<void>(::ftruncate(descriptor_, size_));
    return failure;
  }
  place = size_ + static_cast<int64_t>(sizeof head);
  size_ += static_cast<int64_t>(record.size());
  return 0;
}

int CacheFile::clear() {
  if (::ftruncate(descriptor_, 0) != 0) return errno;
  size_ = 0;
  return 0;
}

std::optional<std::vector<uint8_t>> CacheFile::read(const CachedRanges::Run& run) const {
  std::vector<uint8_t> bytes(static_cast<std::size_t>(run.length));
  if (!readAll(descriptor_, run.place, bytes)) return std::nullopt;
  if (media::crc32Of(bytes) != run.checksum) return std::nullopt;
  return bytes;
}

}  // namespace zaffo::network
