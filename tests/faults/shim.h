/* A shared object to preload that counts the calls of the process to the system, by kind, while it is armed,
 * and refuses one of them, or all from one on. A program finds its functions by name, since it isn't linked
 * with it. */
#ifndef TESSEL_TESTS_FAULTS_SHIM_H
#define TESSEL_TESTS_FAULTS_SHIM_H

#ifdef __cplusplus
extern "C" {
#endif

enum FaultKind {
    FaultAllocation,
    FaultMapping,
    FaultOpen,
    FaultRead,
    FaultShortRead, /* half of what was asked for */
    FaultWrite,
    FaultShortWrite,
    FaultSeek,
    FaultClose, /* closed all the same */
    FaultMkdir,
    FaultStat,
    FaultThread,
    FaultKinds
};

struct FaultsShim
{
    /* `call`: the number, from 1, of the call that is refused; 0: none is. `onwards`: so are all after it. */
    void (*Arm)(int kind, unsigned long call, int onwards);
    void (*Disarm)(void);
    unsigned long (*Calls)(int kind); /* while it was armed */
};
extern const struct FaultsShim faultsShim;

#ifdef __cplusplus
}
#endif

#endif
