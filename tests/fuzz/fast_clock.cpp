// Monotonic time goes a hundred times as fast in a program with this file, and so do the paces of a run: 300 ms
// before it begins, seconds for who doesn't come. These functions stand in front of those of the C library.
#include <ctime>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr long long second = 1'000'000'000, speed = 100;

long long nanoseconds(const timespec &time)
{
    return time.tv_sec * second + time.tv_nsec;
}
timespec timeOf(long long ns)
{
    return {ns / second, ns % second};
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

int clock_gettime(clockid_t clock, timespec *time)
{
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (result == 0 && clock == CLOCK_MONOTONIC) *time = timeOf(nanoseconds(*time) * speed);
    return result;
}

int nanosleep(const timespec *span, timespec *left)
{
    const timespec shortened = timeOf(nanoseconds(*span) / speed);
    return static_cast<int>(syscall(SYS_nanosleep, &shortened, left));
}

int pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                           const timespec *until)
{
    using Wait = int (*)(pthread_cond_t *, pthread_mutex_t *, clockid_t, const timespec *);
    static const auto wait = reinterpret_cast<Wait>(dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    if (clock != CLOCK_MONOTONIC) return wait(condition, mutex, clock, until);
    const timespec real = timeOf(nanoseconds(*until) / speed);
    return wait(condition, mutex, clock, &real);
}
}
#pragma GCC visibility pop
