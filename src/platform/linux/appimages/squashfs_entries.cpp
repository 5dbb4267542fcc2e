#include "platform/linux/appimages/squashfs_entries.h"

#include <sqfs/compressor.h>
#include <sqfs/dir.h>
#include <sqfs/dir_reader.h>
#include <sqfs/error.h>
#include <sqfs/inode.h>
#include <sqfs/io.h>
#include <sqfs/predef.h>
#include <sqfs/super.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace tervano {

namespace {

// A part of an open file, in the library's terms.
struct FilePart {
  sqfs_file_t interface;
  int file;
  std::uint64_t offset;
  std::uint64_t size;
};

int readAt(sqfs_file_t* part, sqfs_u64 offset, void* buffer, std::size_t size) {
  const auto* self = reinterpret_cast<const FilePart*>(part);
  if (offset > self->size || size > self->size - offset) return SQFS_ERROR_OUT_OF_BOUNDS;
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t count = pread(self->file, static_cast<char*>(buffer) + filled, size - filled,
                                static_cast<off_t>(self->offset + offset + filled));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return SQFS_ERROR_IO;
    filled += static_cast<std::size_t>(count);
  }
  return 0;
}

int refuseToWrite(sqfs_file_t* /*part*/, sqfs_u64 /*offset*/, const void* /*buffer*/,
                  std::size_t /*size*/) {
  return SQFS_ERROR_IO;
}

sqfs_u64 sizeOf(const sqfs_file_t* part) {
  return reinterpret_cast<const FilePart*>(part)->size;
}

int refuseToTruncate(sqfs_file_t* /*part*/, sqfs_u64 /*size*/) {
  return SQFS_ERROR_IO;
}

void keep(sqfs_object_t* /*part*/) {}

struct Destroy {
  void operator()(void* object) const { sqfs_destroy(object); }
};
struct Free {
  void operator()(void* memory) const { sqfs_free(memory); }
};

std::vector<std::string> topEntries(sqfs_file_t* file) {
  sqfs_super_t super{};
  if (sqfs_super_read(&super, file) != 0) return {};
  sqfs_compressor_config_t configuration{};
  sqfs_compressor_t* made = nullptr;
  if (sqfs_compressor_config_init(&configuration,
                                  static_cast<SQFS_COMPRESSOR>(super.compression_id),
                                  super.block_size, SQFS_COMP_FLAG_UNCOMPRESS) != 0 ||
      sqfs_compressor_create(&configuration, &made) != 0) {
    return {};
  }
  const std::unique_ptr<sqfs_compressor_t, Destroy> compressor(made);
  if ((super.flags & SQFS_FLAG_COMPRESSOR_OPTIONS) != 0 &&
      compressor->read_options(compressor.get(), file) != 0) {
    return {};
  }
  const std::unique_ptr<sqfs_dir_reader_t, Destroy> reader(
      sqfs_dir_reader_create(&super, compressor.get(), file, 0));
  sqfs_inode_generic_t* root = nullptr;
  if (reader == nullptr || sqfs_dir_reader_get_root_inode(reader.get(), &root) != 0) return {};
  const std::unique_ptr<sqfs_inode_generic_t, Free> rootOwner(root);
  if (sqfs_dir_reader_open_dir(reader.get(), root, 0) != 0) return {};

  std::vector<std::string> names;
  for (int count = 0; count <= kMaximumTopEntries; ++count) {
    sqfs_dir_entry_t* read = nullptr;
    const int end = sqfs_dir_reader_read(reader.get(), &read);
    const std::unique_ptr<sqfs_dir_entry_t, Free> entry(read);
    if (end > 0) return names;
    if (end < 0) return {};
    std::string name(reinterpret_cast<const char*>(entry->name), std::size_t{entry->size} + 1);
    if ((entry->type == SQFS_INODE_FILE || entry->type == SQFS_INODE_SLINK) &&
        name.ends_with(".desktop")) {
      names.push_back(std::move(name));
    }
  }
  return {};
}

}  // namespace

// The module's one visible name.
extern "C" [[gnu::visibility("default")]] void tervanoSquashfsEntries(
    int file, std::uint64_t offset, std::uint64_t size, std::vector<std::string>& names) {
  FilePart part{
      {{keep, nullptr}, readAt, refuseToWrite, sizeOf, refuseToTruncate}, file, offset, size};
  for (auto& name : topEntries(&part.interface)) names.push_back(std::move(name));
}

}  // namespace tervano
