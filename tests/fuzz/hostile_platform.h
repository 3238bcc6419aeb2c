#pragma once

#include <cstdint>

#include "engine/refocus_engine.h"
#include "platform/chi_metadata.h"
#include "platform/chi_node.h"

// All that the node calls outside itself, answering as `world` says: the platform's functions, the
// engine, files and memory. Nothing reaches a disk.
namespace fuzz {

enum EngineCall {
    kInit,
    kSetCameraImageInfo,
    kSetCaliData,
    kGetImageSize,
    kReset,
    kCalc,
    kGetDataSize,
    kGetData,
    kProcess,
    kEngineCalls,
};

constexpr std::uint8_t kBlank = 0x11;    // memory that the node may write, before it does
constexpr std::uint8_t kRendered = 0xE0; // every pixel that the engine renders
constexpr std::uint8_t kDepth = 0xD0;    // every byte of disparity data

// Bits of World::missing; the first two are the calibration files.
enum Missing : std::uint8_t {
    kDumpFolder = 4,
    kMemory = 8,
    kSettingsManager = 16,
    kSettings = 32,
    kVersion = 64,
    kVersionText = 128,
};

// What one callback of the node did.
struct Calls {
    std::uint64_t frameNumber = 0; // that it must name in all it reads and publishes
    int published = 0;
    std::uint32_t depthEffect = 0;
    bool engineRan = false;
    bool engineFailed = false;
    bool dataRead = false;
    bool processed = false;
};

struct World {
    // What is answered to the node.
    std::int64_t results[kEngineCalls] = {};
    std::int32_t calibrationSizes[4] = {6400, 4800, 6400, 4800};
    std::int32_t dataSize = 1000;
    std::int32_t activeSize = 900;
    std::uint32_t calibrationFileSizes[2] = {2048, 2048};
    std::uint8_t missing = 0;
    std::int64_t writeCut = 0; // taken off what each write says it wrote
    std::int64_t seconds = 0;
    std::uint32_t newFails = 0; // n: the n-th `new` from here on fails; 0: none
    const char* logMask = "0";
    const char* dumpImage = "0";
    const char* debugView = "0";
    std::uint32_t imageDegree = 90;
    int failingTag = -1;               // index of the tag whose query fails
    std::uint32_t result = 1;          // of that query, and of all that the node need not look at
    std::uint32_t interfaceResult = 0; // not 0: the node's copy of the table is not written
    std::uint32_t stop = 0;

    // The session of the node that is being driven and the metadata it may read; any may be null.
    void* session = nullptr;
    PhysicalCameraConfigs* cameraConfigs = nullptr;
    PhysicalCameraInputConfig* inputConfig = nullptr;
    InputMetadataBokeh* metadata = nullptr;
    OEMFDResults* faceResults = nullptr;
    std::uint32_t* word = nullptr; // the selected face, or the induced sleep

    Calls calls;

    // What the node holds and must give back; that no memory is lost is the sanitizer's to say.
    int engineInstances = 0;
    int openDumps = 0;
    std::uint32_t openedSize = 0; // of the calibration file opened last
};

extern World world;

// The platform's callback table with all that the node may call.
ChiNodeInterface WholeInterface();

// Loads the node with its file and memory functions led here. Returns its entry point.
using NodeEntry = void (*)(ChiNodeCallbacks*);
NodeEntry LoadNode();

// Ends the process, which the fuzzer reports, where `holds` is false.
void Require(bool holds, const char* what);

} // namespace fuzz
