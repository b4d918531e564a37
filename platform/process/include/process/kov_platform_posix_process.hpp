#pragma once

#include <sys/types.h>

#include <pthread.h>

#include <string>

namespace kov::platform::process {

/// Id of the calling process (getpid()), read once and kept; a child made by fork() gets its own.
pid_t getIdOfCurrentProcess();

/// pthread_self() of the calling thread; not the kernel's thread id.
pthread_t getIdOfCurrentThread();

/// Names the calling thread; only the first 15 characters are used. Failures are ignored.
void setNameOfCurrentThread(const std::string& name);

/// Name of the calling thread, or an empty string when it cannot be read.
std::string getNameOfCurrentThread();

/// Lifts the soft and hard core-file size limits to unlimited; false when that is not allowed.
bool enableCoreDump();

}  // namespace kov::platform::process
