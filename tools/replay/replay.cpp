#include "tools/replay/replay.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

#include <fmt/core.h>

#include "engine/refocus_engine.h"
#include "host/picture/errors.h"
#include "host/picture/false_colour.h"
#include "host/picture/image_file.h"
#include "host/picture/nv12.h"
#include "host/refocus/calibration.h"
#include "tools/dumps/dump_image.h"
#include "tools/files/interruption.h"
#include "tools/files/progress.h"
#include "tools/inspect/inspection.h"
#include "tools/run/capture_request.h"
#include "tools/run/device_folder.h"

namespace fs = std::filesystem;

namespace {

// The node maps places from the sensor to the image and drops faces of less than two sensor pixels.
// A sensor rectangle four times as large as the image gives every place of the image, and every
// face that the node can have dumped, a place on the sensor.
constexpr std::int32_t kSensorScale = 4;

std::uint32_t Unsigned(int value) {
    return static_cast<std::uint32_t>(value);
}

const DumpFile& Required(const DumpSet& set, DumpRole role) {
    const auto& file = set.file(role);
    if (!file) {
        Refuse(set.name(), fmt::format("the {} file", RoleName(role)), "none");
    }
    return *file;
}

// `given`: the width by the option of this name, if it was set.
host::Image ReadInput(const DumpSet& set, DumpRole role, const char* option,
                      std::optional<int> given, int pitch) {
    const DumpFile& file = Required(set, role);
    const int width = given ? *given : WidthOf(set, role);
    if (width % 2 != 0 || width < 2 || width > file.name.first) {
        Refuse(given ? option : file.path.string(),
               fmt::format("an even width of at most the pitch, {}", file.name.first),
               std::to_string(width));
    }
    CheckPitch(pitch, width, file.path);
    host::Image image = ReadImageDump(file, width);
    return pitch != 0 ? ScaleNv12(image, width, image.height(), pitch) : image;
}

// The sensors' sizes as calibrated. Without a calibration, or with one of another engine, they are
// taken to be as large as the dumped crops, which is the least that they can be.
Sensors SensorsOf(const ReplayOptions& options, const fs::path& calibrationFile, const DumpSet& set,
                  const Replayed& replayed) {
    const auto known = [&set](const char* name, int width, int height, const host::Image& image) {
        const auto [low, high] = std::minmax(width, height);
        if (low > 0 && (low < kShortestSensorSide || high > kLongestSensorSide)) {
            Refuse(fmt::format("{}: {}_CropNoScale", set.name(), name),
                   fmt::format("sides of {} to {}", kShortestSensorSide, kLongestSensorSide),
                   InWords({width, height}));
        }
        return low > 0 ? Size{width, height} : image.size();
    };
    const DumpParameters& parameters = replayed.asked;
    Sensors sensors{
        known("i32Main", parameters.mainCropWidth, parameters.mainCropHeight, replayed.main),
        known("i32Aux", parameters.auxCropWidth, parameters.auxCropHeight, replayed.aux)};
    if (!calibrationFile.empty()) {
        refocus::Calibration calibration;
        const Bytes bytes = ReadFileStart(calibrationFile, refocus::kCalibrationBytes);
        if (refocus::ParseCalibration(bytes, calibration) == refocus::Error::kNone) {
            sensors.main = {calibration.main.width / kCalibrationUnitsPerPixel,
                            calibration.main.height / kCalibrationUnitsPerPixel};
            sensors.aux = {calibration.aux.width / kCalibrationUnitsPerPixel,
                           calibration.aux.height / kCalibrationUnitsPerPixel};
        }
    }
    return {options.mainSensor.value_or(sensors.main), options.auxSensor.value_or(sensors.aux)};
}

// The face whose middle is the focus point.
std::optional<std::uint32_t> FaceAround(const DumpParameters& parameters) {
    for (std::uint32_t i = 0; i < parameters.faces.size(); ++i) {
        const DumpedFace& face = parameters.faces[i];
        // The node computes a face's middle in this way.
        if ((face.left + face.right) / 2 == parameters.focusX &&
            (face.top + face.bottom) / 2 == parameters.focusY) {
            return i;
        }
    }
    return std::nullopt;
}

// The node takes a focus in column or row 0 as no focus, unless it is the middle of a face.
bool NeedsFace(const DumpParameters& parameters) {
    return parameters.focusX <= 0 || parameters.focusY <= 0;
}

void RequireFocus(const DumpParameters& parameters) {
    if (NeedsFace(parameters) && !FaceAround(parameters)) {
        Refuse("ptFocus", "a point right of and below 0,0, or the middle of a face",
               fmt::format("{},{}", parameters.focusX, parameters.focusY));
    }
}

// A damaged text can hold any number: refuses those that would overflow the arithmetic.
void RequireRoom(const DumpParameters& parameters, const fs::path& path) {
    const auto check = [&path](const char* name, std::int32_t value) {
        if (value < -kMostPixels || value > kMostPixels) {
            Refuse(fmt::format("{}: {}", path.string(), name),
                   fmt::format("{} to {}", -kMostPixels, kMostPixels), std::to_string(value));
        }
    };
    check("ptFocus_x", parameters.focusX);
    check("ptFocus_y", parameters.focusY);
    check("i32MainWidth_CropNoScale", parameters.mainCropWidth);
    check("i32MainHeight_CropNoScale", parameters.mainCropHeight);
    check("i32AuxWidth_CropNoScale", parameters.auxCropWidth);
    check("i32AuxHeight_CropNoScale", parameters.auxCropHeight);
    if (parameters.degree % 90 != 0 || parameters.degree < 0 || parameters.degree > 270) {
        Refuse(path.string() + ": i32ImageDegree", "0, 90, 180 or 270",
               std::to_string(parameters.degree));
    }
    for (const DumpedFace& face : parameters.faces) {
        check("left", face.left);
        check("top", face.top);
        check("right", face.right);
        check("bottom", face.bottom);
    }
}

DumpParameters ReadDumped(const DumpSet& set) {
    ParameterText text = ReadParameters(set);
    const fs::path& path = Required(set, DumpRole::kParameters).path;
    if (!text.problems.empty()) {
        throw UseError(fmt::format("{}: {}", path.string(), text.problems.front()));
    }
    RequireRoom(text.values, path);
    return std::move(text.values);
}

void SetFocus(host::Request& request, const DumpParameters& parameters) {
    CameraMetadata& camera = request.metadata.cameraMetadata[0];
    // In continuous mode the node would move the focus point to a face.
    constexpr std::int32_t kAfModeAuto = 1;
    camera.afMode = kAfModeAuto;
    // The region is one image pixel, whose middle the node's rounding cannot move.
    const int x = parameters.focusX * kSensorScale;
    const int y = parameters.focusY * kSensorScale;
    camera.focusRect = {x, y, x + kSensorScale - 1, y + kSensorScale - 1};
    RequireFocus(parameters);
    if (NeedsFace(parameters)) {
        camera.afMode = kAfModeContinuousPicture;
        request.selectedFace = *FaceAround(parameters);
    }
}

void SetFaces(host::Request& request, const DumpParameters& parameters) {
    CameraMetadata& camera = request.metadata.cameraMetadata[0];
    const std::size_t count = std::min<std::size_t>(parameters.faces.size(), kMaxFaces);
    for (std::size_t i = 0; i < count; ++i) {
        const DumpedFace& face = parameters.faces[i];
        // The node keeps no face of less than two sensor pixels, not even one without extent here.
        const auto extent = [](int first, int last) {
            return Unsigned(std::max((last - first + 1) * kSensorScale, 2));
        };
        camera.faces[i] = {face.left * kSensorScale, face.top * kSensorScale,
                           extent(face.left, face.right), extent(face.top, face.bottom)};
    }
    camera.faceCount = static_cast<std::uint8_t>(count);
    if (count > 0) {
        // A request has one rotation; the dump repeats it for every face.
        request.faceRotation = FaceDegrees(parameters.faces.front().orient);
    }
}

host::Request RequestOf(const ReplayOptions& options, const host::UseCase& useCase,
                        const Sensors& sensors, Replayed& replayed) {
    const DumpParameters& parameters = replayed.asked;
    host::Request request = host::PlainRequest(useCase, 1);
    request.metadata.blurLevel = Unsigned(parameters.blur);
    request.metadata.skipBokeh = options.skipBokeh ? 1 : 0;
    CameraMetadata& main = request.metadata.cameraMetadata[0];
    CameraMetadata& aux = request.metadata.cameraMetadata[1];
    main.scalerCropRegion = {0, 0, Unsigned(replayed.main.width() * kSensorScale),
                             Unsigned(replayed.main.height() * kSensorScale)};
    SetAppliedCrop(main, sensors.main, replayed.main.size(),
                   {parameters.mainCropWidth, parameters.mainCropHeight}, "main", replayed.notes);
    SetAppliedCrop(aux, sensors.aux, replayed.aux.size(),
                   {parameters.auxCropWidth, parameters.auxCropHeight}, "aux", replayed.notes);
    SetFaces(request, parameters);
    SetFocus(request, parameters);
    return request;
}

// Takes the dumps that the node has made, renamed to the old set's stem.
void TakeDumps(const DeviceFolder& device, const std::string& stem, Replayed& replayed) {
    for (const fs::path& path : device.Dumps()) {
        auto name = ParseDumpName(path.filename().string());
        if (!name) {
            continue;
        }
        // The new dumps bear the time of the replay; under the old names they can be compared file
        // by file.
        name->stem = stem;
        Bytes bytes = ReadFileBytes(path);
        if (name->role == DumpRole::kParameters) {
            if (const ParameterText text = ParseParameterText(bytes); text.problems.empty()) {
                replayed.taken = text.values;
            }
        }
        replayed.files.emplace_back(DumpFileName(*name), std::move(bytes));
    }
}

// With what the replay is compared.
std::string Other(const Replayed& replayed) {
    return replayed.reference ? "the reference build" : "the set";
}

void CompareOutput(const DumpSet& set, bool similarity, Replayed& replayed) {
    const auto& file = set.file(DumpRole::kOutput);
    if (!file) {
        replayed.notCompared.emplace_back(Other(replayed) + " has no output to compare with");
        return;
    }
    // It is read once: in a live session many outputs are compared with it.
    if (replayed.dumpedOutput.height() == 0) {
        replayed.dumpedOutput =
            ReadImageDump(*file, std::min(replayed.output.width(), file->name.first));
    }
    if (replayed.dumpedOutput.size() == replayed.output.size()) {
        replayed.outputDifference = Compare(replayed.dumpedOutput, replayed.output, {}, similarity);
    } else {
        replayed.notCompared.push_back(Other(replayed) + "'s output has another size, " +
                                       InWords(replayed.dumpedOutput.size()));
    }
}

// Whole rows are compared, what stands behind the image's pixels included, unless the option
// --pitch has made the rows of the replay shorter or longer.
void CompareDisparity(const DumpSet& set, const host::Image& depth, bool pitchChanged,
                      bool similarity, Replayed& replayed) {
    const auto& file = set.file(DumpRole::kDisparity);
    const bool made = replayed.result.published->depthPictureSize > 0;
    replayed.disparityDue = file || made;
    if (!file || !made) {
        if (replayed.disparityDue) {
            replayed.notCompared.push_back(file ? "the replay has no disparity to compare"
                                                : Other(replayed) +
                                                      " has no disparity to compare with");
        }
        return;
    }
    const int height = depth.height();
    const int pitch = pitchChanged ? file->name.first : depth.pitch();
    const int width = pitchChanged ? depth.width() : pitch;
    const auto expected = ImageBytes(host::Image::Format::Y8, pitch, height);
    replayed.disparity =
        ImageFromBytes(host::Image::Format::Y8, depth.bytes(), width, depth.pitch(), height);
    if (file->name.first != pitch || pitch < width || file->name.height != height ||
        file->bytes < expected) {
        replayed.notCompared.push_back(fmt::format(
            "{}'s disparity has another size: expected {}x{}, {} bytes, found {}x{}, {} bytes",
            Other(replayed), pitch, height, expected, file->name.first, file->name.height,
            file->bytes));
        return;
    }
    if (file->bytes > expected) { // a device's buffer keeps the size of the largest capture
        replayed.notes.push_back(fmt::format(
            "the set's disparity has {} bytes, compared are the first {}", file->bytes, expected));
    }
    if (replayed.dumpedDisparity.height() == 0) {
        replayed.dumpedDisparity = ReadImageDump(*file, width);
    }
    replayed.disparityDifference =
        Compare(replayed.dumpedDisparity, replayed.disparity, {}, similarity);
}

// The parameters that the replay is to have.
DumpParameters Changed(const DumpParameters& dumped, const ReplayOptions& options) {
    DumpParameters asked = dumped;
    const auto change = [](const auto& option, std::int32_t& value) {
        value = option ? static_cast<std::int32_t>(*option) : value;
    };
    const auto changeSize = [](const std::optional<Size>& option, std::int32_t& width,
                               std::int32_t& height) {
        width = option ? option->width : width;
        height = option ? option->height : height;
    };
    change(options.blur, asked.blur);
    change(options.rotation, asked.degree);
    changeSize(options.mainCrop, asked.mainCropWidth, asked.mainCropHeight);
    changeSize(options.auxCrop, asked.auxCropWidth, asked.auxCropHeight);
    if (options.focus) {
        asked.focusX = options.focus->x;
        asked.focusY = options.focus->y;
    }
    if (options.noFaces || !options.faces.empty()) {
        asked.faces.clear();
    }
    for (const ChiRect& face : options.faces) {
        asked.faces.push_back({face.left, face.top,
                               face.left + static_cast<std::int32_t>(face.width) - 1,
                               face.top + static_cast<std::int32_t>(face.height) - 1});
    }
    for (DumpedFace& face : asked.faces) {
        if (options.faceRotation) { // rounded to quarter turns, as the node does
            face.orient = kFaceOrients[(*options.faceRotation % 360 + 360 + 45) / 90 % 4];
        }
    }
    return asked;
}

// All that the options change about the request or set about what it runs in.
std::vector<std::string> ChangesOf(const ReplayOptions& options, const Replayed& replayed) {
    std::vector<std::string> changes = DifferencesOf(replayed.dumped, replayed.asked);
    const auto add = [&changes](const char* option, const std::string& value) {
        if (!value.empty()) {
            changes.push_back(fmt::format("{} {}", option, value));
        }
    };
    const auto number = [](auto value) { return value ? std::to_string(*value) : std::string(); };
    const auto size = [](const std::optional<Size>& value) {
        return value ? InWords(*value) : std::string();
    };
    if (options.skipBokeh) {
        changes.emplace_back(kSkipBokeh);
    }
    add("--debug-view", number(options.debugView));
    for (const auto& [name, value] : options.properties) {
        add("--set", fmt::format("{}={}", name, value));
    }
    for (const std::string& failure : options.failures) {
        add("--fail", failure);
    }
    add("--pitch", options.pitch == 0 ? "" : std::to_string(options.pitch));
    add("--main-width", number(options.mainWidth));
    add("--aux-width", number(options.auxWidth));
    add("--main-sensor", size(options.mainSensor));
    add("--aux-sensor", size(options.auxSensor));
    add("--calibration", options.calibration);
    add("--node", options.node);
    add("--engine", options.engine);
    return changes;
}

// `before`: a replay of the same set and widths, which loses its dumped images to this one.
Replayed ReadSet(const DumpSet& set, const ReplayOptions& options, Replayed&& before) {
    Replayed replayed;
    replayed.dumped = ReadDumped(set);
    replayed.asked = Changed(replayed.dumped, options);
    replayed.changes = ChangesOf(options, replayed);
    replayed.reference = std::move(before.reference);
    replayed.main = std::move(before.main);
    replayed.aux = std::move(before.aux);
    replayed.dumpedOutput = std::move(before.dumpedOutput);
    replayed.dumpedDisparity = std::move(before.dumpedDisparity);
    if (replayed.main.height() == 0) {
        replayed.main =
            ReadInput(set, DumpRole::kMain, "--main-width", options.mainWidth, options.pitch);
        replayed.aux =
            ReadInput(set, DumpRole::kAux, "--aux-width", options.auxWidth, options.pitch);
    }
    if (options.focus) {
        CheckFocus(*options.focus, replayed.main.size());
    }
    CheckFaces(options.faces, replayed.main.size());
    const auto& output = set.file(DumpRole::kOutput);
    // Rows are as long as those of the old dump, whose name holds their length, so that the new
    // dump gets the same name.
    const bool asDumped =
        options.pitch == 0 && output && output->name.first >= replayed.main.width();
    const int pitch = asDumped ? output->name.first : replayed.main.pitch();
    replayed.output = host::Image(host::Image::Format::Nv12, replayed.main.width(),
                                  replayed.main.height(), pitch);
    return replayed;
}

} // namespace

bool Replayed::asDumped() const {
    return asked == dumped && debugView == 0 && !std::ranges::count(changes, kSkipBokeh);
}

bool Replayed::same() const {
    const bool disparitySame =
        disparityDifference ? disparityDifference->identical() : !disparityDue;
    const bool effectSame =
        !reference || reference->depthEffectInfo == result.published->result.depthEffectInfo;
    return effectSame && disparitySame && outputDifference && outputDifference->identical();
}

void RefuseCapturesFolder(const fs::path& output, const fs::path& captures) {
    std::error_code missing;
    if (fs::equivalent(output, captures, missing)) {
        Refuse("--output", "another folder than the captures' own", output);
    }
}

void RefuseSetsFolder(const fs::path& output, const DumpSet& set) {
    RefuseCapturesFolder(output, set.folder.empty() ? "." : set.folder);
}

void WriteFiles(OutputFolder& folder, const std::string& stem, const Replayed& replayed) {
    const Progress progress("writing the results");
    for (const auto& [name, bytes] : replayed.files) {
        folder.Write(name, bytes);
    }
    folder.Write(stem + "_output.png", EncodePng(Nv12ToRgb(replayed.output)));
    // A map that an earlier replay has left would contradict an identical result.
    const std::string map = stem + "_difference.png";
    if (replayed.outputDifference && !replayed.outputDifference->identical()) {
        folder.Write(map,
                     EncodePng(HeatMap(DifferenceMap(replayed.dumpedOutput, replayed.output))));
    } else {
        folder.Drop(map);
    }
}

std::string Replayed::status() const {
    if (failed()) {
        return "failed";
    }
    const bool otherDisparity = disparityDifference && !disparityDifference->identical();
    return equal()                                         ? "equal"
           : dumpedOutput.height() == 0 && !otherDisparity ? "rendered"
                                                           : "differs";
}

void CheckFocus(const DumpSet& set, const ReplayOptions& options) {
    if (options.focus) {
        const int width = options.mainWidth.value_or(WidthOf(set, DumpRole::kMain));
        CheckFocus(*options.focus, {width, Required(set, DumpRole::kMain).name.height});
        RequireFocus(Changed(ReadDumped(set), options));
    }
}

namespace {

using RunRequest = std::function<Outcome(const RunOptions&, const Libraries&, const host::UseCase&,
                                         host::Request&)>;

// Compares what came of the request with the set.
void CompareWithSet(const DumpSet& set, const ReplayOptions& options, const DeviceFolder& device,
                    const host::Image& depth, Replayed& replayed) {
    // Without a published result the output holds nothing to compare.
    if (!replayed.result.published) {
        return;
    }
    if (replayed.copied) {
        const auto rotation = Unsigned(replayed.asked.degree);
        std::ranges::move(FindPairProblems(replayed.main, replayed.aux, device.AuxSide(rotation)),
                          std::back_inserter(replayed.reasons));
    }
    if (replayed.taken && !(*replayed.taken == replayed.asked)) {
        for (const std::string& difference : DifferencesOf(replayed.asked, *replayed.taken)) {
            replayed.notes.push_back("the node changed a parameter of the request: " + difference);
        }
    }
    CompareOutput(set, options.dump, replayed);
    CompareDisparity(set, depth, options.pitch != 0, options.dump, replayed);
    std::ranges::copy(replayed.notCompared, std::back_inserter(replayed.notes));
}

// Runs the request in the folder, which is made where there is none yet. `replayed`: an earlier
// replay of the set, or an empty one. `ran`: called after the run, returns whether to compare.
void RunAndCompare(const DumpSet& set, const ReplayOptions& options, Replayed& replayed,
                   std::optional<DeviceFolder>& device, const RunRequest& runRequest,
                   const std::function<bool()>& ran) {
    const Libraries libraries = FindLibraries(options);
    RunOptions run = options;
    // What the caller names comes before the file that stands beside the set.
    if (run.calibration.empty()) {
        run.calibration = CalibrationBeside(set);
    }
    replayed = ReadSet(set, options, std::move(replayed));
    replayed.libraries = libraries;
    const Sensors sensors = SensorsOf(options, run.calibration, set, replayed);
    replayed.mainSensor = sensors.main;
    replayed.auxSensor = sensors.aux;
    const std::uint32_t rotation = Unsigned(replayed.asked.degree);
    const host::UseCase useCase = UseCaseOf(sensors, replayed.output.size(), rotation);
    host::Request request = RequestOf(options, useCase, sensors, replayed);
    host::Image depth = DepthImage(replayed.main);
    request.inputs = {&replayed.main, &replayed.aux};
    request.output = &replayed.output;
    request.depth = &depth;
    if (!device) {
        device.emplace(run);
        device->Prepare(sensors.main, sensors.aux, rotation, set.name());
    }
    // The outcome replaces its part of `replayed` alone: parameters and images stay, but the notes
    // so far are part of the outcome.
    std::vector<std::string> notes = std::move(replayed.notes);
    static_cast<Outcome&>(replayed) = runRequest(options, libraries, useCase, request);
    std::ranges::move(notes, std::back_inserter(replayed.notes));
    replayed.calibration = device->calibration();
    if (!ran()) {
        return;
    }
    if (options.dump) {
        TakeDumps(*device, set.stem, replayed);
        if (replayed.result.published) {
            replayed.missing = MissingOfSet(device->DumpFolder(), device->Dumps(),
                                            replayed.result.published->depthPictureSize > 0);
        }
    }
    CompareWithSet(set, options, *device, depth, replayed);
}

} // namespace

Replayed Replay(const DumpSet& set, const ReplayOptions& options,
                const std::optional<Reference>& reference) {
    // Made by the parent, which removes it where the child crashes.
    const TemporaryFolder root;
    ContinueInChild(options.timeout);
    ReplayOptions dumping = options;
    dumping.dump = true;
    dumping.deviceRoot = root.path();
    Replayed replayed;
    replayed.reference = reference;
    std::optional<DeviceFolder> device;
    RunAndCompare(set, dumping, replayed, device, RunNode, [] { return true; });
    return replayed;
}

struct LoadedReplay::State {
    DumpSet set;
    LoadedNode node;
    std::optional<DeviceFolder> device;
    ReplayOptions made; // the last options
    Replayed last;
    bool whole = false; // the last run came to its end and left nothing
};

LoadedReplay::LoadedReplay(const DumpSet& set) : state_(std::make_unique<State>()) {
    state_->set = set;
}

LoadedReplay::~LoadedReplay() = default;

const Replayed& LoadedReplay::Run(const ReplayOptions& options, const TakeOutput& take) {
    // What a node has at its creation: its use case, its properties and its calibration.
    const auto ofNode = [](const ReplayOptions& of) {
        return std::tie(of.dump, of.rotation, of.mainCrop, of.auxCrop, of.mainSensor, of.auxSensor,
                        of.debugView, of.logMask, of.properties, of.calibration);
    };
    State& state = *state_;
    if (!state.whole || ofNode(options) != ofNode(state.made)) {
        state.node.End();
        state.device.reset();
    }
    if (!state.whole) {
        state.last = {}; // which a run that failed may have lost images of
    }
    state.whole = false;
    state.made = options;
    const auto runHere = [&state](const RunOptions& run, const Libraries& libraries,
                                  const host::UseCase& useCase, host::Request& request) {
        return state.node.Run(run, libraries, useCase, request, false);
    };
    RunAndCompare(state.set, options, state.last, state.device, runHere,
                  [&] { return take(state.last); });
    state.whole = !options.dump; // the folder would hold these dumps at the next run
    return state.last;
}
