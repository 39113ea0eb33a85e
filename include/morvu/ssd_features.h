/* The Morvu SSD library: the functions that a host program calls.
 *
 * Everything crosses this border as text: a request goes in as one XML document,
 * replies come out as XML documents. The conventions, told once:
 *
 *  1. Texts are UTF-8. A request need not be terminated; a received text is. A request
 *     is one XML document; a document type in it is passed over, with its entities.
 *  2. The host owns every buffer that it passes. The library keeps none of them
 *     after the call has returned, and hands out no pointer of its own.
 *  3. A status is a number of morvu/status_codes.h. It tells whether the call was
 *     understood; how the operation went stands in the "ErrorCode" of the job.
 *  4. All functions may be called from any thread at any time, except that Load
 *     and Unload must overlap no other call. Before Unload the host lets its jobs
 *     end.
 *  5. No function throws, and none fails on a null pointer.
 *  6. Each job leaves a message, its reply, which stays until it is received or the
 *     library is unloaded: a host that never receives fills its memory. From then on
 *     its identifier may be another job's: cancel by it no more.
 *  7. A thread of the host that is canceled (pthread_cancel) inside a call ends when the
 *     call has returned. A process may return from main while jobs run.
 */
#ifndef MORVU_SSD_FEATURES_H
#define MORVU_SSD_FEATURES_H

#include <stdbool.h>
#include <stdint.h>

#include "morvu/status_codes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Called with a job's identifier when a message of that job waits. Runs on the
 * job's thread, for a synchronous job on the caller's own, and may run before
 * SendXMLMessage has returned the identifier. It may call ReceiveXMLMessage; it
 * must not call RegisterEvent or UnregisterEvent, and must not block. One that ends
 * its thread (pthread_exit) ends the job there, with an error in its "ErrorCode". */
typedef void (*EventCallback)(uint64_t jobId);

/* Makes the library ready. No drive is touched. Calling it again changes nothing.
 * Returns 0, or 185 when the thread that watches the jobs could not be started. */
int32_t Load(void);

/* Drops all jobs, drives and messages that were not received, and ends logging.
 * Registered callbacks stay. Jobs that still run are asked to end, and waited for.
 * Does nothing when a callback calls it. */
void Unload(void);

/* The version 1.2.0 as one number, 10200400. Needs no Load. */
uint64_t GetVer(void);

/* Include drives behind an LSI RAID controller in the next scans, or leave them
 * out. They are left out after Load. Without a loaded library nothing happens. */
void EnableLSIAdapter(void);
void DisableLSIAdapter(void);

/* Writes a log to the file `path`, of `pathLength` bytes without a terminator.
 * `level`: 1 errors, 2 warnings, 3 steps, 4 detail, 5 everything; more counts as
 * 5. `restart` empties the file first. Jobs may run meanwhile. The log goes to a
 * file, a pipe that is read, a terminal or /dev/null.
 * Returns 0, or 9 when the path cannot be opened; an earlier log then goes on. */
int32_t EnableLogger(const char* path, uint32_t pathLength, uint32_t level, bool restart);

/* Ends logging. Jobs may run meanwhile. */
void DisableLogger(void);

/* Starts a job for the request `xml` of `xmlLength` bytes, which ends at a NUL if
 * it holds one. `*jobId` is the job's identifier, written on success only. With
 * `synchronous`, any byte but 0, the call returns when the job has ended, otherwise at once.
 * Returns 0; 73 for a null pointer; 178 before Load; 244 when the text is no
 * message or names no subject that the library has; 185 when no thread could be
 * started for the job. A negative status is an error number of the system. */
int32_t SendXMLMessage(const char* xml, uint32_t xmlLength, uint64_t* jobId, bool synchronous);

/* Takes the next message of job `jobId`. `*bufferLength` is the size of `buffer`
 * in bytes on the way in, and the size of the text with its NUL on the way out.
 * Returns 0; 243 when no message waits; 141 when the buffer is too small and 73
 * when it is null: the message then stays, and `*bufferLength` tells its size. */
int32_t ReceiveXMLMessage(uint64_t jobId, char* buffer, uint32_t* bufferLength);

/* Adds a callback; the same one may be added several times. */
void RegisterEvent(EventCallback callback);

/* Removes the first entry of this callback, if there is one. */
void UnregisterEvent(EventCallback callback);

#ifdef __cplusplus
}
#endif

#endif /* MORVU_SSD_FEATURES_H */
