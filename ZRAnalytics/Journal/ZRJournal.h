// The journal of events: what an application sets as CoreSetup::journal so that a kill loses no event.
#pragma once

#include <cstddef>
#include <memory>

#include "Platform/Export.h"

namespace zorvane {

class ZREventJournal;

// How a journal is kept.
struct ZRJournalOptions {
  // The size of its file, 64 KiB to 256 MiB, rounded up to 4 KiB; a size beyond counts as the nearest. A small event
  // takes about 400 bytes until it is saved.
  std::size_t bytes = 1u << 20;
  // Seconds between two syncs of the file by a background task; 0: none. A power loss costs what was not synced. A kill
  // costs nothing in either case.
  double syncSeconds = 0;
};

// A journal in "ZrvData/ZREventJournal" below the library directory. Give it to one start of the module. From
// initializeAnalytics on, an event whose call has returned is recorded by the next launch if this process is killed.
// What it costs and what it does not cover: docs/journal.md. When the file cannot be made, locked or mapped, or is
// full, events are in memory only, and the log says it once.
ZR_PUBLIC std::shared_ptr<ZREventJournal> makeEventJournal(ZRJournalOptions options = {});

}  // namespace zorvane
