#pragma once

#include <atomic>
#include <cstdint>

#include "platform/log.h"

// Log lines are output that device engineers grep for, so every text stands here or at its one
// call, whole, and reaches the platform as a format with its arguments. Each text starts with the
// place: the operation that prints (%s) and its source line (%d).
//
// The tag says who speaks: the node class and the callbacks, or the base class with its dumps and
// its calibration file. Errors always print; a debug line that is switched off costs one relaxed
// load and a branch.

// Bit 2 lets the node's debug lines through, bits 2 and 4 together the base class's. Process-wide:
// every node's construction sets it from its property, every destruction clears it. Atomic,
// since nodes may come and go on several threads; relaxed, since it orders nothing.
extern std::atomic<std::int32_t> g_enableNodeLogs;

constexpr std::int32_t kLogNode = 2;
constexpr std::int32_t kLogBase = 2 | 4;

inline bool LogEnabled(std::int32_t bits) {
    return (g_enableNodeLogs.load(std::memory_order_relaxed) & bits) == bits;
}

inline constexpr char kNodeTag[] = "TSL_CTB";
inline constexpr char kBaseTag[] = "TSL_BTB";

inline constexpr char kTextNullPointer[] = "%s: %d: NULL POINTER!";
inline constexpr char kTextNullPointerCode[] = "%s: %d: errCode = %d: NULL POINTER!";
inline constexpr char kTextResult[] = "%s: %d: res: %d NULL POINTER!";
inline constexpr char kTextResultWide[] = "%s: %d:  res: %d NULL POINTER!";
inline constexpr char kTextEngineFailed[] = "%s: %d: %s failed res = %ld";

inline constexpr char kTextIn[] = "TSL_CTB: %s: %d:  (IN)\n";
inline constexpr char kTextOut[] = "TSL_CTB: %s: %d:  (OUT)\n";
inline constexpr char kTextOutResult[] = "TSL_CTB: %s: %d: (OUT) res = %d\n";
inline constexpr char kTextOutResultWide[] = "TSL_CTB: %s: %d:  (OUT) res = %d\n";
inline constexpr char kTextColonIn[] = "TSL_CTB: %s: %d: : (IN)\n";
inline constexpr char kTextColonOut[] = "TSL_CTB: %s: %d: : (OUT)\n";

#define LOG_LINE(priority, tag, operation, text, ...)                                              \
    __android_log_print((priority), (tag), (text), (operation), __LINE__ __VA_OPT__(, ) __VA_ARGS__)

#define LOG_DEBUG_LINE(bits, tag, operation, text, ...)                                            \
    do {                                                                                           \
        if (LogEnabled(bits)) {                                                                    \
            LOG_LINE(ANDROID_LOG_DEBUG, tag, operation, text __VA_OPT__(, ) __VA_ARGS__);          \
        }                                                                                          \
    } while (false)

// An operation with a function of its own prints under that function's name; a step that is split
// off prints under the name of the operation it belongs to, with the _AS forms.
#define NODE_ERROR_AS(operation, ...) LOG_LINE(ANDROID_LOG_ERROR, kNodeTag, operation, __VA_ARGS__)
#define NODE_DEBUG_AS(operation, ...) LOG_DEBUG_LINE(kLogNode, kNodeTag, operation, __VA_ARGS__)
#define NODE_ERROR(...) NODE_ERROR_AS(__func__, __VA_ARGS__)
#define NODE_DEBUG(...) NODE_DEBUG_AS(__func__, __VA_ARGS__)
#define BASE_DEBUG_AS(operation, ...) LOG_DEBUG_LINE(kLogBase, kBaseTag, operation, __VA_ARGS__)
#define BASE_ERROR_AS(operation, ...) LOG_LINE(ANDROID_LOG_ERROR, kBaseTag, operation, __VA_ARGS__)
#define BASE_ERROR(...) BASE_ERROR_AS(__func__, __VA_ARGS__)
#define BASE_DEBUG(...) BASE_DEBUG_AS(__func__, __VA_ARGS__)
