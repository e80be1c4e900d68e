// Saves the events that an earlier launch left in its journal.
#pragma once

#include "ZRAnalytics/EventManagement/ZRBatchFile.h"
#include "ZRAnalytics/Journal/ZRJournalFormat.h"
#include "ZRAnalytics/Journal/ZRJournalRing.h"

namespace zorvane::journal {

// Takes the steps of "The next launch" in docs/journal.md, up to the last. False when the batch file cannot be read or
// written: then call it again in another launch. What could not be recovered is logged.
bool recover(const Contents& contents, Ring& ring, ZRBatchFile& batches);

}  // namespace zorvane::journal
