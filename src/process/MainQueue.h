// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Dispatch.h"
#include "values/Ref.h"

namespace hoist {

// Work for the main thread, whose run loop must be running. Safe from any thread.

dispatch::Queue& MainQueue();
bool IsMainThread();
void RunAsyncOnMainQueue(dispatch::Block block);
// Runs the block at once on the main thread; from another one, runs it there and waits for its end.
// An exception of the block reaches the caller.
void RunSyncOnMainThread(const dispatch::Block& block);
// The same without waiting.
void RunOnMainThread(dispatch::Block block);

// Hands the object to the background queue, where it goes away if nobody else holds it: the end of
// a large one does not hold up the main thread. Only from the main thread; elsewhere, and for
// nothing, it does nothing. All objects of one turn of the run loop go together.
void ReleaseLaterInBackground(Ref<const void> object);

}  // namespace hoist
