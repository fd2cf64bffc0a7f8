#pragma once

// Plain C interface of the host's logging backend. The backend is built with the default
// std::string ABI because Debian's Boost.Log is; nothing of the C++ standard library crosses
// this boundary, so callers built with the pre-C++11 ABI can use it.
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Where records go: a file path, or NULL (length 0) for standard error.
void vxlog_set_output(const char* path, size_t path_len);

// One record: channel, severity bit, indentation depth and text. Serialised by the backend.
void vxlog_write(const char* channel, size_t channel_len, unsigned severity, int indent,
                 const char* text, size_t text_len);

// Routes every record to fn as well (tests read records back this way); NULL stops it.
typedef void (*vxlog_capture_fn)(void* context, unsigned severity, int indent, const char* text,
                                 size_t text_len);
void vxlog_set_capture(vxlog_capture_fn fn, void* context);

// Waits until every record written so far has reached its output.
void vxlog_flush(void);

#ifdef __cplusplus
}
#endif
