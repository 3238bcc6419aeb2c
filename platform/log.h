#pragma once

// Android log, as the node uses it. Implemented by the platform's liblog.

enum AndroidLogPriority : int {
    ANDROID_LOG_DEBUG = 3,
    ANDROID_LOG_ERROR = 6,
};

// Prints one line, or as many as the text has. `format` and its arguments follow printf; `tag`
// names the speaker. Neither may be null, and nothing is kept after the call. The result is of no
// use to the node. Thread-safe.
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
