#pragma once

// Android log, as the node uses it. Implemented by the platform's liblog.

enum AndroidLogPriority : int {
    ANDROID_LOG_DEBUG = 3,
    ANDROID_LOG_ERROR = 6,
};

// Thread-safe. `format` and its arguments follow printf; nothing is kept after the call.
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
