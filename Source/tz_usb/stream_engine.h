// SPDX-License-Identifier: Apache-2.0
// The acquisition thread's side of a stream, for the streaming calls that start it, stop it and release buffers to it.
#pragma once

#include "handle.h"

/// Body of the acquisition thread; takes the camera handle, returns null.
void* usb_stream_thread_callback(void* handle);

/// Issue a read into the free buffer with the oldest frame, if the stream runs and no read is out or about to be tried
/// again.
void usb_stream_resume_reading(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex);
