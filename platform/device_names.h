#pragma once

// Names, paths and sizes that the node agrees on with the rest of the device, and so with every
// program that reads what it writes. Text only: no type of the platform or the engine.
namespace device {

// --- Libraries ---

// The node's name is its section of vendor tags as well.
inline constexpr char kNodeName[] = "com.qav.node.capturebokeh";
inline constexpr char kNodeLibrary[] = "com.qav.node.capturebokeh.so";
inline constexpr char kEngineLibrary[] = "libtessola_dualcam_refocus_image.so";

// --- System properties; decimal numbers, 0 where unset ---

// Read at each node's construction. Bit 2: debug lines of the node; bits 2 and 4 together: those of
// its base class as well.
inline constexpr char kLogMaskProperty[] = "persist.vendor.camera.tessola.log";
// Not 0: every request writes its dumps. Read once a node, as the next one is.
inline constexpr char kDumpProperty[] = "persist.vendor.camera.tessola.cb.dumpimg";
// What the output shows: 1 the main image, 2 the aux image, 3 the main image with the aux image in
// its corner; anything else the rendered picture.
inline constexpr char kDebugViewProperty[] = "persist.vendor.camera.tessola.cb.debugview";

// --- The calibration file of the camera pair; its bytes are the engine's ---

inline constexpr int kCalibrationFileSize = 2048;

// In the order in which they are tried: the device's own, written at the factory, then the one that
// all devices of the model share.
inline constexpr const char* kCalibrationPaths[] = {
    "/mnt/vendor/persist/camera/dualcam_cali.bin",
    "/vendor/etc/camera/dualcam_cali.bin",
};

// --- Dumps: kDumpFolder/PREFIX TIMESTAMP SUFFIX _WIDTHxHEIGHT ENDING ---

// Must exist; the node does not make it.
inline constexpr char kDumpFolder[] = "/data/vendor/camera";
inline constexpr char kDumpPrefix[] = "IMG_";
inline constexpr char kMainDumpSuffix[] = "_0"; // of parameters and disparity as well
inline constexpr char kAuxDumpSuffix[] = "_1";
inline constexpr char kOutputDumpSuffix[] = "_res";
inline constexpr char kImageDumpEnding[] = ".nv12"; // full pitch, luma rows then chroma rows
inline constexpr char kParameterDumpEnding[] = "_metadata.txt";
inline constexpr char kDisparityDumpEnding[] = ".Y8"; // the engine's disparity bytes

// --- Vendor tags ---

struct VendorTagName {
    const char* section;
    const char* tag; // null, in a query: the section's base
};

namespace sections {
inline constexpr char kMultiCameraInput[] = "com.qti.chi.multicamerainputmetadata";
inline constexpr char kMultiCameraOutput[] = "com.qti.chi.multicameraoutputmetadata";
inline constexpr char kMultiCameraControl[] = "com.qti.chi.multicameracontrol";
inline constexpr char kCameraConfiguration[] = "com.qti.chi.cameraconfiguration";
inline constexpr char kFaceResults[] = "org.quic.camera2.oemfdresults";
inline constexpr char kStreamCrop[] = "com.qti.camera.streamCropInfo";
inline constexpr char kInduceSleep[] = "org.quic.camera.induceSleepInChiNode";
} // namespace sections

namespace tags {

// The node's own, which it registers and publishes.
inline constexpr VendorTagName kSupportedFeature{kNodeName, "SupportedFeature"};
inline constexpr VendorTagName kCurrentMode{kNodeName, "CurrentMode"};
inline constexpr VendorTagName kProcessedFrameNumber{kNodeName, "ProcessedFrameNumber"};
inline constexpr VendorTagName kFrameDimension{kNodeName, "FrameDimension"};

// The platform's that the node publishes.
inline constexpr VendorTagName kOutputMetadata{sections::kMultiCameraOutput, "OutputMetadataBokeh"};
inline constexpr VendorTagName kDepthPictureSize{sections::kMultiCameraControl, "depthpicturesize"};
inline constexpr VendorTagName kPtFocus{sections::kMultiCameraControl, "PtFocus"};

// The platform's that the node reads; the last three it only resolves.
inline constexpr VendorTagName kInputMetadata{sections::kMultiCameraInput, "InputMetadataBokeh"};
inline constexpr VendorTagName kPhysicalCameraConfigs{sections::kCameraConfiguration,
                                                      "PhysicalCameraConfigs"};
inline constexpr VendorTagName kPhysicalCameraInputConfig{sections::kCameraConfiguration,
                                                          "PhysicalCameraInputConfig"};
inline constexpr VendorTagName kFaceResults{sections::kFaceResults, "OEMFDResults"};
inline constexpr VendorTagName kSelectFaceIndex{sections::kMultiCameraControl, "SelectFaceIndex"};
inline constexpr VendorTagName kInduceSleep{sections::kInduceSleep, "InduceSleep"};
inline constexpr VendorTagName kStreamCropInfo{sections::kStreamCrop, "StreamCropInfo"};
inline constexpr VendorTagName kEnableStreamCrop{sections::kStreamCrop, "EnableStreamCrop"};
inline constexpr VendorTagName kStatus{sections::kMultiCameraControl, "status"};

} // namespace tags
} // namespace device
