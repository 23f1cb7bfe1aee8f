#pragma once

namespace platform {

/// Called by the thread that runs the main run loop, whenever it does: see pthread_main_np.
void NoteMainLoopThread();

}  // namespace platform
