#pragma once

// Reuse of log records, for LogMessage (log_message.cpp) only. Everything here has internal linkage:
// it is part of no interface of the library.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ios>
#include <locale>
#include <memory>
#include <ostream>
#include <utility>

#include "common/log/log_data.hpp"
#include "common/log/log_level.hpp"

#if defined(__SANITIZE_THREAD__)
#define KOV_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KOV_THREAD_SANITIZER 1
#endif
#endif

// Initial-exec TLS: a few bytes of static TLS instead of a __tls_get_addr call per message.
#define KOV_FAST_TLS __attribute__((tls_model("initial-exec")))

namespace kov::common::log {
namespace {

// Each thread keeps its last finished record for its next message, so that a message in steady state
// allocates nothing and builds no new stream. A record is kept only when nobody else holds it any more
// (a logger that keeps a record keeps its own shared_ptr, and that record is never reused).
//
// `keptSlot` points at the thread's `KeptRecord` once the thread has logged; `keptRecordGone` is set
// when that object is destroyed at thread exit. Both are plain data, readable at any time, also while
// the thread's other thread-local objects are being destroyed: a message logged from a later
// destructor neither touches nor refills the kept record.
KOV_FAST_TLS thread_local std::shared_ptr<LogData>* keptSlot = nullptr;
KOV_FAST_TLS thread_local bool keptRecordGone = false;

struct KeptRecord {
  ~KeptRecord() {
    keptRecordGone = true;
    keptSlot = nullptr;
  }
  std::shared_ptr<LogData> record;
};

thread_local KeptRecord keptRecord;

/// The calling thread's slot for a kept record; null once the thread is ending.
std::shared_ptr<LogData>* keptRecordSlot() {
  if (keptSlot == nullptr && !keptRecordGone) {
    keptSlot = &keptRecord.record;
  }
  return keptSlot;
}

/// True when `record` has no other holder, with all that former holders did to it visible here.
bool heldByNobodyElse(const std::shared_ptr<LogData>& record) {
  if (record.use_count() != 1) {
    return false;
  }
#ifdef KOV_THREAD_SANITIZER
  // ThreadSanitizer does not model fences: acquire through a read-modify-write of the count instead.
  const std::shared_ptr<LogData> probe = record;
  static_cast<void>(probe);
#else
  // use_count() reads the count without ordering; the fence orders the last holder's release
  // decrement before the record is written again.
  std::atomic_thread_fence(std::memory_order_acquire);
#endif
  return true;
}

/// Whether `stream` still has the locale that a new stream would get now (the global one).
bool hasGlobalLocale(const std::ostream& stream) {
  const std::locale global;
#ifdef __GLIBCXX__
  return stream._M_getloc() == global;  // a reference: no copy of the locale
#else
  return stream.getloc() == global;
#endif
}

/// Gives a used stream the state of a new one over its own buffer: flags, width, precision, fill,
/// exception mask, tie, locale and state. (Words and callbacks registered with iword, pword and
/// register_callback are not reset; the library's messages use none.)
void makeStreamFresh(std::ostream& stream, FixedSizeStreambuffer& buffer) {
  if (stream.rdbuf() != &buffer) {
    stream.rdbuf(&buffer);
  }
  if (!hasGlobalLocale(stream)) {
    stream.imbue(std::locale());
  }
  stream.flags(std::ios_base::skipws | std::ios_base::dec);
  stream.width(0);
  stream.precision(6);
  stream.fill(stream.widen(' '));
  stream.tie(nullptr);
  if (stream.exceptions() != std::ios_base::goodbit) {
    stream.exceptions(std::ios_base::goodbit);
  }
  if (stream.rdstate() != std::ios_base::goodbit) {
    stream.clear();
  }
}

/// The calling thread's kept record, filled in afresh, or a new record (one allocation).
std::shared_ptr<LogData> acquireLogRecord(const char* file, std::chrono::steady_clock::time_point time,
                                          LogLevel level, std::uint32_t line, std::uint32_t processId,
                                          std::uint32_t threadId) {
  std::shared_ptr<LogData>* const slot = keptRecordSlot();
  if (slot != nullptr && *slot) {
    std::shared_ptr<LogData> record = std::move(*slot);
    if (heldByNobodyElse(record)) {
      record->buffer.rewind();
      makeStreamFresh(record->stream, record->buffer);
      record->file = file;
      record->time = time;
      record->level = level;
      record->line = line;
      record->processId = processId;
      record->threadId = threadId;
      record->discarded = false;
      return record;
    }
  }
  return std::make_shared<LogData>(file, time, level, line, processId, threadId);
}

/// Keeps `record` for the calling thread's next message if nobody else holds it; otherwise, or once
/// the thread is ending, just lets go of it.
void releaseLogRecord(std::shared_ptr<LogData>&& record) noexcept {
  std::shared_ptr<LogData>* const slot = keptRecordSlot();
  if (slot != nullptr && record && heldByNobodyElse(record)) {
    *slot = std::move(record);
  }
  record.reset();
}

}  // namespace
}  // namespace kov::common::log
