#include "SqliteFaultVfs.h"

#include <cstring>

std::atomic<SqliteFaultVfs::Fault> SqliteFaultVfs::s_fault{SqliteFaultVfs::kNone};
std::atomic<int> SqliteFaultVfs::s_refused{0};

// An open file of the layer: our methods in front, the default VFS's file right behind.
struct SqliteFaultVfsFile {
  sqlite3_file base;   // pMethods points at the layer's methods
  sqlite3_file* real;  // the default VFS's file, in the same allocation after this struct
  bool writable;       // a database, WAL or journal: the files a full disk refuses to grow

  static SqliteFaultVfsFile* of(sqlite3_file* f) { return reinterpret_cast<SqliteFaultVfsFile*>(f); }
  static sqlite3_file* real_(sqlite3_file* f) { return of(f)->real; }

  // The code of the fault in force for a write to `f`, or SQLITE_OK.
  static int fault(sqlite3_file* f) {
    if (!of(f)->writable) return SQLITE_OK;
    switch (SqliteFaultVfs::s_fault.load()) {
      case SqliteFaultVfs::kDiskFull:
        ++SqliteFaultVfs::s_refused;
        return SQLITE_FULL;
      case SqliteFaultVfs::kIoError:
        ++SqliteFaultVfs::s_refused;
        return SQLITE_IOERR_WRITE;
      case SqliteFaultVfs::kNone:
        break;
    }
    return SQLITE_OK;
  }

  static int close(sqlite3_file* f) {
    const int rc = real_(f)->pMethods ? real_(f)->pMethods->xClose(real_(f)) : SQLITE_OK;
    return rc;
  }
  static int read(sqlite3_file* f, void* buffer, int amount, sqlite3_int64 offset) {
    return real_(f)->pMethods->xRead(real_(f), buffer, amount, offset);
  }
  static int write(sqlite3_file* f, const void* buffer, int amount, sqlite3_int64 offset) {
    if (const int rc = fault(f)) return rc;
    return real_(f)->pMethods->xWrite(real_(f), buffer, amount, offset);
  }
  static int truncate(sqlite3_file* f, sqlite3_int64 size) { return real_(f)->pMethods->xTruncate(real_(f), size); }
  static int sync(sqlite3_file* f, int flags) {
    if (const int rc = fault(f)) return rc == SQLITE_FULL ? SQLITE_FULL : SQLITE_IOERR_FSYNC;
    return real_(f)->pMethods->xSync(real_(f), flags);
  }
  static int fileSize(sqlite3_file* f, sqlite3_int64* size) { return real_(f)->pMethods->xFileSize(real_(f), size); }
  static int lock(sqlite3_file* f, int level) { return real_(f)->pMethods->xLock(real_(f), level); }
  static int unlock(sqlite3_file* f, int level) { return real_(f)->pMethods->xUnlock(real_(f), level); }
  static int checkReservedLock(sqlite3_file* f, int* out) {
    return real_(f)->pMethods->xCheckReservedLock(real_(f), out);
  }
  static int fileControl(sqlite3_file* f, int op, void* arg) {
    return real_(f)->pMethods->xFileControl(real_(f), op, arg);
  }
  static int sectorSize(sqlite3_file* f) { return real_(f)->pMethods->xSectorSize(real_(f)); }
  static int deviceCharacteristics(sqlite3_file* f) { return real_(f)->pMethods->xDeviceCharacteristics(real_(f)); }
  static int shmMap(sqlite3_file* f, int region, int size, int extend, void volatile** out) {
    return real_(f)->pMethods->xShmMap(real_(f), region, size, extend, out);
  }
  static int shmLock(sqlite3_file* f, int offset, int n, int flags) {
    return real_(f)->pMethods->xShmLock(real_(f), offset, n, flags);
  }
  static void shmBarrier(sqlite3_file* f) { real_(f)->pMethods->xShmBarrier(real_(f)); }
  static int shmUnmap(sqlite3_file* f, int deleteFlag) { return real_(f)->pMethods->xShmUnmap(real_(f), deleteFlag); }
  static int fetch(sqlite3_file* f, sqlite3_int64 offset, int amount, void** out) {
    return real_(f)->pMethods->xFetch(real_(f), offset, amount, out);
  }
  static int unfetch(sqlite3_file* f, sqlite3_int64 offset, void* page) {
    return real_(f)->pMethods->xUnfetch(real_(f), offset, page);
  }
};

namespace {

// The default VFS's files are version 3 (shared memory and memory mapping); the layer offers
// the same methods, each forwarding.
const sqlite3_io_methods kMethods = {
    3,
    SqliteFaultVfsFile::close,
    SqliteFaultVfsFile::read,
    SqliteFaultVfsFile::write,
    SqliteFaultVfsFile::truncate,
    SqliteFaultVfsFile::sync,
    SqliteFaultVfsFile::fileSize,
    SqliteFaultVfsFile::lock,
    SqliteFaultVfsFile::unlock,
    SqliteFaultVfsFile::checkReservedLock,
    SqliteFaultVfsFile::fileControl,
    SqliteFaultVfsFile::sectorSize,
    SqliteFaultVfsFile::deviceCharacteristics,
    SqliteFaultVfsFile::shmMap,
    SqliteFaultVfsFile::shmLock,
    SqliteFaultVfsFile::shmBarrier,
    SqliteFaultVfsFile::shmUnmap,
    SqliteFaultVfsFile::fetch,
    SqliteFaultVfsFile::unfetch,
};

sqlite3_vfs* baseOf(sqlite3_vfs* vfs) { return static_cast<sqlite3_vfs*>(vfs->pAppData); }

int openFile(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  auto* layered = SqliteFaultVfsFile::of(file);
  layered->real = reinterpret_cast<sqlite3_file*>(layered + 1);
  layered->writable = (flags & (SQLITE_OPEN_MAIN_DB | SQLITE_OPEN_WAL | SQLITE_OPEN_MAIN_JOURNAL)) != 0;
  const int rc = baseOf(vfs)->xOpen(baseOf(vfs), name, layered->real, flags, outFlags);
  // SQLite calls xClose when pMethods is set, even after a failed open.
  file->pMethods = layered->real->pMethods ? &kMethods : nullptr;
  return rc;
}

int deleteFile(sqlite3_vfs* vfs, const char* name, int syncDir) {
  return baseOf(vfs)->xDelete(baseOf(vfs), name, syncDir);
}
int access(sqlite3_vfs* vfs, const char* name, int flags, int* out) {
  return baseOf(vfs)->xAccess(baseOf(vfs), name, flags, out);
}
int fullPathname(sqlite3_vfs* vfs, const char* name, int size, char* out) {
  return baseOf(vfs)->xFullPathname(baseOf(vfs), name, size, out);
}
void* dlOpen(sqlite3_vfs* vfs, const char* name) { return baseOf(vfs)->xDlOpen(baseOf(vfs), name); }
void dlError(sqlite3_vfs* vfs, int size, char* out) { baseOf(vfs)->xDlError(baseOf(vfs), size, out); }
void (*dlSym(sqlite3_vfs* vfs, void* handle, const char* symbol))(void) {
  return baseOf(vfs)->xDlSym(baseOf(vfs), handle, symbol);
}
void dlClose(sqlite3_vfs* vfs, void* handle) { baseOf(vfs)->xDlClose(baseOf(vfs), handle); }
int randomness(sqlite3_vfs* vfs, int size, char* out) { return baseOf(vfs)->xRandomness(baseOf(vfs), size, out); }
int sleep(sqlite3_vfs* vfs, int micros) { return baseOf(vfs)->xSleep(baseOf(vfs), micros); }
int currentTime(sqlite3_vfs* vfs, double* out) { return baseOf(vfs)->xCurrentTime(baseOf(vfs), out); }
int lastError(sqlite3_vfs* vfs, int size, char* out) { return baseOf(vfs)->xGetLastError(baseOf(vfs), size, out); }
int currentTimeInt64(sqlite3_vfs* vfs, sqlite3_int64* out) { return baseOf(vfs)->xCurrentTimeInt64(baseOf(vfs), out); }

}  // namespace

SqliteFaultVfs::SqliteFaultVfs() {
  sqlite3_initialize();
  m_base = sqlite3_vfs_find(nullptr);
  s_fault = kNone;
  s_refused = 0;
  m_vfs.iVersion = 2;
  m_vfs.szOsFile = static_cast<int>(sizeof(SqliteFaultVfsFile)) + m_base->szOsFile;
  m_vfs.mxPathname = m_base->mxPathname;
  m_vfs.zName = "journal-fault-vfs";
  m_vfs.pAppData = m_base;
  m_vfs.xOpen = openFile;
  m_vfs.xDelete = deleteFile;
  m_vfs.xAccess = access;
  m_vfs.xFullPathname = fullPathname;
  m_vfs.xDlOpen = dlOpen;
  m_vfs.xDlError = dlError;
  m_vfs.xDlSym = dlSym;
  m_vfs.xDlClose = dlClose;
  m_vfs.xRandomness = randomness;
  m_vfs.xSleep = sleep;
  m_vfs.xCurrentTime = currentTime;
  m_vfs.xGetLastError = lastError;
  m_vfs.xCurrentTimeInt64 = currentTimeInt64;
  sqlite3_vfs_register(&m_vfs, 1);
}

SqliteFaultVfs::~SqliteFaultVfs() {
  sqlite3_vfs_unregister(&m_vfs);
  sqlite3_vfs_register(m_base, 1);  // the default again
  s_fault = kNone;
}
