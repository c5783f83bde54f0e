// Test control of the host stand-in of the viewfinder library (rvf_lib.h).
//
// What is real: the event flag word (RVFAppSetEventFlag / ReceiveEventFlag /
// ClearEventFlag block and wake like the library's), the two stream
// semaphores (POSIX semaphores created by StartRVFDevice and released by
// RVFAppSemaphoreDestory), the streaming side's reader thread that a test
// starts, and the DCF parser, which walks the media root and writes the media
// database in the host stack's SQLite schema (host_media.h) so that
// DataBaseMgr reads what it wrote. Every call is journalled with its
// arguments: texts as they are ("(null)" for null), numbers in decimal,
// bools as 0/1, pointers as %p ("(nil)" for null).
//
// Scripted results (host::scriptResult):
//   "StartRVFDevice"                 returned instead of starting (0 starts)
//   "RVFAppSetEventFlag", "RVFAppClearEventFlag"
//                                    0 makes the call fail without effect
//   "RVFAppReceiveEventFlag"         0 makes the call fail at once
//   "RVFAppReceiveEventFlag.bits"    returned at once as the received bits
//   "parseMediaFilesDcfDB"           returned instead of parsing (after a hold)
//   "CDSRVF_Set_Control_Function", "CDSRVF_Set_Mpeg_Function",
//   "CDSBM_Set_Control_Function", "CDSBM_Set_Mpeg_Function"  their result
#ifndef CAMWIFI_HOST_RVF_H
#define CAMWIFI_HOST_RVF_H

#include <cstddef>
#include <string>
#include <vector>

namespace host {
namespace rvf {

// --- Service ----------------------------------------------------------------------
// StartRVFDevice succeeded and terminateRVF has not been called since.
bool running();
// Which stream semaphores the next StartRVFDevice creates (both, after reset).
void createStreamSemaphores(bool ready4Read, bool readComplete);
// Values of the two semaphores when RVFAppSemaphoreDestory released them;
// -1 for one that did not exist (or before any release).
struct SemaphoreValues {
    int ready4Read = -1;
    int readComplete = -1;
};
SemaphoreValues semaphoreValuesAtRelease();
// Current value of the ready-for-read semaphore; -1 when it does not exist.
int ready4ReadValue();

// --- Event flag word ------------------------------------------------------------------
// The bits now set (0 when the word does not exist).
unsigned int eventFlags();
// Clears every bit without a journal entry (a test's fresh start).
void clearEventFlags();
// Threads now blocked in RVFAppReceiveEventFlag.
int eventFlagWaiters();
// Waits (at most timeoutMs) until count threads are blocked there.
bool waitForEventFlagWaiters(int count, int timeoutMs);

// --- Streaming side ---------------------------------------------------------------------
// How the reader thread answers the buffers it reads.
enum class Reader {
    KeepsUp,       // reads each buffer and posts read-complete
    NeverSignals,  // reads each buffer and never posts read-complete
};
// Starts the streaming side's reader on the running service: it waits on the
// ready-for-read semaphore, copies the buffer handed over and answers as mode
// says. While the streaming stop is set it lets buffers go unread (with
// KeepsUp, still answering). It ends at terminateRVF, RVFAppSemaphoreDestory,
// stopReader or reset.
void startReader(Reader mode);
void stopReader();
// Contents of every buffer the reader copied, in order.
std::vector<std::string> buffersRead();
// Waits (at most timeoutMs) until the reader has copied count buffers.
bool waitForBuffersRead(std::size_t count, int timeoutMs);
// RVFStreamingThruGet::setStreamingStop as last called (false after a start).
bool streamingStopped();

// --- DCF media list and parser -------------------------------------------------------------
// While held, every parse waits before its walk until the hold is lifted or
// the parse is cancelled (DcfFileInfoVector::CancelInvalidateAllItems).
void holdParses(bool hold);
// Waits (at most timeoutMs) until a parse waits at the hold.
bool waitForHeldParse(int timeoutMs);
// Paths in the DCF media list (filled by the last parse, emptied by
// DcfFileInfoVector::DestroyInstance).
std::vector<std::string> dcfFiles();
// MultiMediaDbConnector::SetThumbnailWorkingStatus as last called.
bool thumbnailWorking();

}  // namespace rvf
}  // namespace host

#endif
