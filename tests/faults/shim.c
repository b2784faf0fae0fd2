#define _GNU_SOURCE
#include "faults/shim.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

static atomic_bool armed;
static atomic_ulong calls[FaultKinds];
static int refusedKind; /* these three are constant while it is armed */
static unsigned long refusedCall;
static int refusedOnwards;

static void arm(int kind, unsigned long call, int onwards)
{
    for (int i = 0; i < FaultKinds; ++i) calls[i] = 0;
    refusedKind = kind;
    refusedCall = call;
    refusedOnwards = onwards;
    armed = 1;
}

static void disarm(void)
{
    armed = 0;
}

static unsigned long callsOf(int kind)
{
    return calls[kind];
}

const struct FaultsShim faultsShim = {arm, disarm, callsOf};

/* Counts the call. True: it is to fail, with this error. */
static int fails(int kind, int error)
{
    if (!armed) return 0;
    const unsigned long call = ++calls[kind];
    if (kind != refusedKind || refusedCall == 0) return 0;
    if (refusedOnwards ? call < refusedCall : call != refusedCall) return 0;
    errno = error;
    return 1;
}

/* What a read or write of `count` is to move. */
static size_t cut(int kind, size_t count)
{
    return fails(kind, 0) && count > 1 ? count / 2 : count;
}

/* The function that would have been called. */
#define REAL(name) (__extension__(__typeof__(&name)) dlsym(RTLD_NEXT, #name))

#define REFUSE(kind, error, result)                                                                            \
    if (fails(kind, error)) return result

/* ---------------------------------------------------------------------------------------------- memory; not
 * by dlsym, which itself allocates */

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

/* malloc maps what is large. */
static int failsAllocation(size_t size)
{
    return fails(FaultAllocation, ENOMEM) || (size >= 131072 && fails(FaultMapping, ENOMEM));
}
void *malloc(size_t size)
{
    return failsAllocation(size) ? NULL : __libc_malloc(size);
}
void *calloc(size_t count, size_t size)
{
    return failsAllocation(count * size) ? NULL : __libc_calloc(count, size);
}
void *realloc(void *memory, size_t size)
{
    return failsAllocation(size) ? NULL : __libc_realloc(memory, size);
}
void *aligned_alloc(size_t alignment, size_t size)
{
    return failsAllocation(size) ? NULL : __libc_memalign(alignment, size);
}
int posix_memalign(void **memory, size_t alignment, size_t size)
{
    *memory = aligned_alloc(alignment, size);
    return *memory ? 0 : ENOMEM;
}
void *mmap(void *address, size_t length, int protection, int flags, int file, off_t offset)
{
    REFUSE(FaultMapping, ENOMEM, MAP_FAILED);
    return REAL(mmap)(address, length, protection, flags, file, offset);
}

/* ----------------------------------------------------------------------------------------------- opening */

#define OPEN(name, parameters, ...)                                                                            \
    int name parameters                                                                                        \
    {                                                                                                          \
        va_list more;                                                                                          \
        va_start(more, flags);                                                                                 \
        const mode_t mode = (mode_t)va_arg(more, unsigned int);                                                \
        va_end(more);                                                                                          \
        REFUSE(FaultOpen, EMFILE, -1);                                                                         \
        return REAL(name)(__VA_ARGS__, flags, mode);                                                           \
    }
OPEN(open, (const char *path, int flags, ...), path)
OPEN(open64, (const char *path, int flags, ...), path)
OPEN(openat, (int folder, const char *path, int flags, ...), folder, path)

#define OPEN_STREAM(name)                                                                                      \
    FILE *name(const char *path, const char *mode)                                                             \
    {                                                                                                          \
        REFUSE(FaultOpen, EMFILE, NULL);                                                                       \
        return REAL(name)(path, mode);                                                                         \
    }
OPEN_STREAM(fopen)
OPEN_STREAM(fopen64)

DIR *opendir(const char *path)
{
    REFUSE(FaultOpen, EMFILE, NULL);
    return REAL(opendir)(path);
}

/* -------------------------------------------------------------------------------------- reading, writing */

ssize_t read(int file, void *bytes, size_t count)
{
    REFUSE(FaultRead, EIO, -1);
    return REAL(read)(file, bytes, cut(FaultShortRead, count));
}
ssize_t pread(int file, void *bytes, size_t count, off_t offset)
{
    REFUSE(FaultRead, EIO, -1);
    return REAL(pread)(file, bytes, cut(FaultShortRead, count), offset);
}
size_t fread(void *bytes, size_t size, size_t count, FILE *file)
{
    REFUSE(FaultRead, EIO, 0);
    return REAL(fread)(bytes, size, cut(FaultShortRead, count), file);
}
ssize_t write(int file, const void *bytes, size_t count)
{
    REFUSE(FaultWrite, ENOSPC, -1);
    return REAL(write)(file, bytes, cut(FaultShortWrite, count));
}
ssize_t writev(int file, const struct iovec *parts, int count)
{
    REFUSE(FaultWrite, ENOSPC, -1);
    return REAL(writev)(file, parts, (int)cut(FaultShortWrite, (size_t)count));
}

/* What a stream holds back isn't written after a refusal, as on a full disc. */
size_t fwrite(const void *bytes, size_t size, size_t count, FILE *file)
{
    REFUSE(FaultWrite, ENOSPC, 0);
    const size_t taken = cut(FaultShortWrite, count);
    const size_t written = REAL(fwrite)(bytes, size, taken, file);
    if (taken < count) errno = ENOSPC;
    return written;
}
int fclose(FILE *file)
{
    int failed = __fpending(file) > 0 && fails(FaultWrite, ENOSPC);
    if (failed) __fpurge(file);
    failed = fails(FaultClose, EIO) || failed;
    const int error = errno;
    const int result = REAL(fclose)(file);
    if (!failed) return result;
    errno = error;
    return EOF;
}
int close(int file)
{
    const int failed = fails(FaultClose, EIO);
    const int result = REAL(close)(file);
    if (!failed) return result;
    errno = EIO;
    return -1;
}

#define SEEK(name, stream, offset, failed)                                                                     \
    offset name(stream file, offset distance, int from)                                                        \
    {                                                                                                          \
        REFUSE(FaultSeek, EIO, failed);                                                                        \
        return (offset)REAL(name)(file, distance, from);                                                       \
    }
SEEK(lseek, int, off_t, -1)
SEEK(lseek64, int, off64_t, -1)
int fseeko(FILE *file, off_t distance, int from)
{
    REFUSE(FaultSeek, EIO, -1);
    return REAL(fseeko)(file, distance, from);
}

/* ------------------------------------------------------------------------------------- folders and files */

int mkdir(const char *path, mode_t mode)
{
    REFUSE(FaultMkdir, ENOSPC, -1);
    return REAL(mkdir)(path, mode);
}

#define STAT(name, place, record)                                                                              \
    int name(place of, struct record *status)                                                                  \
    {                                                                                                          \
        REFUSE(FaultStat, EACCES, -1);                                                                         \
        return REAL(name)(of, status);                                                                         \
    }
STAT(stat, const char *, stat)
STAT(lstat, const char *, stat)
STAT(fstat, int, stat)
STAT(stat64, const char *, stat64)
STAT(fstat64, int, stat64)

int truncate(const char *path, off_t length)
{
    REFUSE(FaultWrite, EIO, -1);
    return REAL(truncate)(path, length);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument)
{
    REFUSE(FaultThread, EAGAIN, EAGAIN);
    return REAL(pthread_create)(thread, attributes, body, argument);
}
