// SPDX-License-Identifier: MIT
#include "tests/support/shim_vfs.h"

#include <atomic>
#include <new>

namespace test_support {
namespace {

using Kind = DiskCall::Kind;

sqlite3_vfs* SystemVfs() {
  static sqlite3_vfs* const vfs = sqlite3_vfs_find(nullptr);
  return vfs;
}

/// SQLite allocates it, with room for the system's file after it.
struct ShimFile {
  sqlite3_file base;
  const ShimVfs* shim;
  std::string* path;
};

ShimFile& Shim(sqlite3_file* file) {
  return *reinterpret_cast<ShimFile*>(file);
}

sqlite3_file* Real(sqlite3_file* file) {
  return reinterpret_cast<sqlite3_file*>(reinterpret_cast<char*>(file) + sizeof(ShimFile));
}

const sqlite3_io_methods& Methods(sqlite3_file* file) {
  return *Real(file)->pMethods;
}

int Close(sqlite3_file* file) {
  delete Shim(file).path;
  return Methods(file).xClose(Real(file));
}

int Read(sqlite3_file* file, void* to, int size, sqlite3_int64 at) {
  return Methods(file).xRead(Real(file), to, size, at);
}

int Write(sqlite3_file* file, const void* from, int size, sqlite3_int64 at) {
  const std::string octets(static_cast<const char*>(from), static_cast<std::size_t>(size));
  const int answer = Shim(file).shim->Ask({Kind::kWrite, *Shim(file).path, at, octets});
  return answer != SQLITE_OK ? answer : Methods(file).xWrite(Real(file), from, size, at);
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
  const int answer = Shim(file).shim->Ask({Kind::kTruncate, *Shim(file).path, size, {}});
  return answer != SQLITE_OK ? answer : Methods(file).xTruncate(Real(file), size);
}

int Sync(sqlite3_file* file, int flags) {
  const int answer = Shim(file).shim->Ask({Kind::kSync, *Shim(file).path, 0, {}});
  return answer != SQLITE_OK ? answer : Methods(file).xSync(Real(file), flags);
}

int FileSize(sqlite3_file* file, sqlite3_int64* size) {
  return Methods(file).xFileSize(Real(file), size);
}

int Lock(sqlite3_file* file, int kind) {
  return Methods(file).xLock(Real(file), kind);
}

int Unlock(sqlite3_file* file, int kind) {
  return Methods(file).xUnlock(Real(file), kind);
}

int CheckReservedLock(sqlite3_file* file, int* result) {
  return Methods(file).xCheckReservedLock(Real(file), result);
}

int FileControl(sqlite3_file* file, int operation, void* argument) {
  return Methods(file).xFileControl(Real(file), operation, argument);
}

int SectorSize(sqlite3_file* file) {
  return Methods(file).xSectorSize(Real(file));
}

int DeviceCharacteristics(sqlite3_file* file) {
  return Methods(file).xDeviceCharacteristics(Real(file));
}

int ShmMap(sqlite3_file* file, int page, int size, int extend, void volatile** to) {
  const int answer = Shim(file).shim->Ask({Kind::kShare, *Shim(file).path, 0, {}});
  return answer != SQLITE_OK ? answer : Methods(file).xShmMap(Real(file), page, size, extend, to);
}

int ShmLock(sqlite3_file* file, int offset, int count, int flags) {
  return Methods(file).xShmLock(Real(file), offset, count, flags);
}

void ShmBarrier(sqlite3_file* file) {
  Methods(file).xShmBarrier(Real(file));
}

int ShmUnmap(sqlite3_file* file, int and_delete) {
  return Methods(file).xShmUnmap(Real(file), and_delete);
}

constexpr sqlite3_io_methods kMethods = {2,
                                         Close,
                                         Read,
                                         Write,
                                         Truncate,
                                         Sync,
                                         FileSize,
                                         Lock,
                                         Unlock,
                                         CheckReservedLock,
                                         FileControl,
                                         SectorSize,
                                         DeviceCharacteristics,
                                         ShmMap,
                                         ShmLock,
                                         ShmBarrier,
                                         ShmUnmap,
                                         nullptr,
                                         nullptr};

const ShimVfs& Owner(sqlite3_vfs* vfs) {
  return *static_cast<const ShimVfs*>(vfs->pAppData);
}

int Open(sqlite3_vfs* vfs, sqlite3_filename path, sqlite3_file* file, int flags, int* out_flags) {
  const int result = SystemVfs()->xOpen(SystemVfs(), path, Real(file), flags, out_flags);
  Shim(file).base.pMethods = nullptr;  // SQLite does not close it then
  if (result != SQLITE_OK) return result;
  Shim(file).shim = &Owner(vfs);
  Shim(file).path = new std::string(path == nullptr ? "" : path);
  Shim(file).base.pMethods = &kMethods;
  return SQLITE_OK;
}

int Delete(sqlite3_vfs* vfs, const char* path, int sync_folder) {
  const int answer = Owner(vfs).Ask({Kind::kDelete, path, 0, {}});
  return answer != SQLITE_OK ? answer : SystemVfs()->xDelete(SystemVfs(), path, sync_folder);
}

std::string FreshName() {
  static std::atomic<int> count = 0;
  return "shim" + std::to_string(++count);
}

}  // namespace

ShimVfs::ShimVfs(Hook hook) : hook_(std::move(hook)), name_(FreshName()), vfs_(*SystemVfs()) {
  vfs_.zName = name_.c_str();
  vfs_.pAppData = this;
  vfs_.szOsFile = static_cast<int>(sizeof(ShimFile)) + SystemVfs()->szOsFile;
  vfs_.xOpen = Open;
  vfs_.xDelete = Delete;
  sqlite3_vfs_register(&vfs_, 0);
}

ShimVfs::~ShimVfs() {
  sqlite3_vfs_unregister(&vfs_);
}

}  // namespace test_support
