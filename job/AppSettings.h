// AppSettings: makes and drops the session of the calling thread.
//
// Each thread has at most one Session; CurrentSession() (job/Session.h)
// returns it. The session is the thread's own: sessions of different threads
// share nothing but the job database and the files.
#pragma once

#include <string>

namespace tessel::AppSettings {

// Makes the thread's session and initialises it; returns its id, a whole
// number from 1 to 9999 as text. 7001 when the thread has a session already.
// When initialising fails the thread is left without a session.
std::string Initialise(const std::string& jobId, bool dataServiceMode, bool testMode,
                       const std::string& uniqueClientId);
// Drops the thread's session, freeing its lock; harmless without one.
void Release();

}  // namespace tessel::AppSettings
