#include "tools/replay/replay.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "engine/refocus_engine.h"
#include "host/picture/disparity_picture.h"
#include "host/picture/errors.h"
#include "host/refocus/calibration.h"
#include "tools/dumps/dump_image.h"
#include "tools/files/progress.h"
#include "tools/replay/crop_search.h"
#include "tools/run/capture_request.h"
#include "tools/run/device_folder.h"
#include "tools/run/libraries.h"
#include "tools/run/log_lines.h"

namespace fs = std::filesystem;

namespace {

// The node maps places from the sensor to the image. With the sensor's rectangle four times as
// large every place of the image has one of the sensor, faces too small to be kept included.
constexpr std::int32_t kFine = 4;

std::uint32_t Unsigned(int value) {
    return static_cast<std::uint32_t>(value);
}

Size SizeOf(const host::Image& image) {
    return {image.width(), image.height()};
}

std::string Text(Size size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

const DumpFile& Required(const DumpSet& set, DumpRole role) {
    const auto& file = set.file(role);
    if (!file) {
        throw UseError(set.name() + ": expected the " + RoleName(role) + " file, found none");
    }
    return *file;
}

host::Image ReadInput(const DumpSet& set, DumpRole role, std::optional<int> given) {
    const DumpFile& file = Required(set, role);
    const int width = given ? *given : WidthOf(set, role);
    if (width % 2 != 0 || width < 2 || width > file.name.first) {
        throw UseError(file.path.string() + ": expected an even width of at most the pitch, " +
                       std::to_string(file.name.first) + ", found " + std::to_string(width));
    }
    return ReadImageDump(file, width);
}

struct Sensors {
    Size main;
    Size aux;
};

// The sensors that the calibration is for. Of another engine's calibration, or of none, it is only
// known that they show at least what was dumped.
Sensors SensorsOf(const ReplayOptions& options, const DumpParameters& parameters,
                  const Replayed& replayed) {
    const auto known = [](int width, int height, const host::Image& image) {
        return width > 0 && height > 0 ? Size{width, height} : SizeOf(image);
    };
    Sensors sensors{known(parameters.mainCropWidth, parameters.mainCropHeight, replayed.main),
                    known(parameters.auxCropWidth, parameters.auxCropHeight, replayed.aux)};
    if (!options.device.calibration.empty()) {
        refocus::Calibration calibration;
        const Bytes bytes = ReadFileBytes(options.device.calibration);
        if (refocus::ParseCalibration(bytes, calibration) == refocus::Error::kNone) {
            sensors.main = {calibration.main.width / kCalibrationUnitsPerPixel,
                            calibration.main.height / kCalibrationUnitsPerPixel};
            sensors.aux = {calibration.aux.width / kCalibrationUnitsPerPixel,
                           calibration.aux.height / kCalibrationUnitsPerPixel};
        }
    }
    return {options.mainSensor.value_or(sensors.main), options.auxSensor.value_or(sensors.aux)};
}

void SetCrop(CameraMetadata& camera, Size sensor, Size image, Size part, const char* name,
             std::vector<std::string>& notes) {
    const auto applied = FindAppliedCrop(sensor, image, part);
    if (applied) {
        camera.ifeAppliedCrop = applied->crop;
    }
    if (!applied || applied->part.width != part.width || applied->part.height != part.height) {
        notes.push_back(std::string("the ") + name + " crop, " + Text(part) +
                        ", is none that a sensor of " + Text(sensor) + " and an image of " +
                        Text(image) + " can have; " +
                        (applied ? Text(applied->part) : "the whole sensor") + " is taken");
    }
}

// The face whose middle is this point.
std::optional<std::uint32_t> FaceAround(const DumpParameters& parameters) {
    for (std::uint32_t i = 0; i < parameters.faces.size(); ++i) {
        const DumpedFace& face = parameters.faces[i];
        if ((face.left + face.right) / 2 == parameters.focusX &&
            (face.top + face.bottom) / 2 == parameters.focusY) {
            return i;
        }
    }
    return std::nullopt;
}

// The node takes a place in the first column or row as none, unless it is a face's middle.
bool NeedsFace(const DumpParameters& parameters) {
    return parameters.focusX <= 0 || parameters.focusY <= 0;
}

void RequireFocus(const DumpParameters& parameters) {
    if (NeedsFace(parameters) && !FaceAround(parameters)) {
        throw UseError("ptFocus: expected a point right of and below 0,0, or the middle of a face, "
                       "found " +
                       std::to_string(parameters.focusX) + "," + std::to_string(parameters.focusY));
    }
}

void RequireInside(Point point, Size image) {
    if (point.x < 0 || point.y < 0 || point.x >= image.width || point.y >= image.height) {
        throw UseError("--focus: expected a point of the main picture, " + Text(image) +
                       ", found " + std::to_string(point.x) + "," + std::to_string(point.y));
    }
}

// A damaged text can hold any number; the arithmetic has room for these.
void RequireRoom(const DumpParameters& parameters, const fs::path& path) {
    const auto check = [&path](const char* name, std::int32_t value) {
        if (value < -kMostPixels || value > kMostPixels) {
            throw UseError(path.string() + ": " + name + ": expected " +
                           std::to_string(-kMostPixels) + " to " + std::to_string(kMostPixels) +
                           ", found " + std::to_string(value));
        }
    };
    check("ptFocus_x", parameters.focusX);
    check("ptFocus_y", parameters.focusY);
    check("i32MainWidth_CropNoScale", parameters.mainCropWidth);
    check("i32MainHeight_CropNoScale", parameters.mainCropHeight);
    check("i32AuxWidth_CropNoScale", parameters.auxCropWidth);
    check("i32AuxHeight_CropNoScale", parameters.auxCropHeight);
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
        throw UseError(path.string() + ": " + text.problems.front());
    }
    RequireRoom(text.values, path);
    return std::move(text.values);
}

void SetFocus(host::Request& request, const DumpParameters& parameters) {
    CameraMetadata& camera = request.metadata.cameraMetadata[0];
    constexpr std::int32_t kAfModeAuto = 1;
    camera.afMode = kAfModeAuto;
    const int x = parameters.focusX * kFine;
    const int y = parameters.focusY * kFine;
    camera.focusRect = {x, y, x + kFine - 1, y + kFine - 1};
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
        // Of an extent of none a sensor's face has two pixels, the fewest that the node keeps.
        const auto extent = [](int first, int last) {
            return Unsigned(std::max((last - first + 1) * kFine, 2));
        };
        camera.faces[i] = {face.left * kFine, face.top * kFine, extent(face.left, face.right),
                           extent(face.top, face.bottom)};
    }
    camera.faceCount = static_cast<std::uint8_t>(count);
    if (count > 0) {
        request.faceRotation = FaceDegrees(parameters.faces.front().orient);
    }
}

host::UseCase UseCaseOf(const DumpParameters& parameters, const Sensors& sensors,
                        const host::Image& output) {
    return {sensors.main, sensors.aux, SizeOf(output), Unsigned(parameters.degree)};
}

host::Request RequestOf(const ReplayOptions& options, const host::UseCase& useCase,
                        const Sensors& sensors, Replayed& replayed) {
    const DumpParameters& parameters = replayed.asked;
    host::Request request = host::PlainRequest(useCase, 1);
    request.metadata.blurLevel = Unsigned(parameters.blur);
    request.metadata.skipBokeh = options.skipBokeh ? 1 : 0;
    CameraMetadata& main = request.metadata.cameraMetadata[0];
    CameraMetadata& aux = request.metadata.cameraMetadata[1];
    main.scalerCropRegion = {0, 0, Unsigned(replayed.main.width() * kFine),
                             Unsigned(replayed.main.height() * kFine)};
    SetCrop(main, sensors.main, SizeOf(replayed.main),
            {parameters.mainCropWidth, parameters.mainCropHeight}, "main", replayed.notes);
    SetCrop(aux, sensors.aux, SizeOf(replayed.aux),
            {parameters.auxCropWidth, parameters.auxCropHeight}, "aux", replayed.notes);
    SetFaces(request, parameters);
    SetFocus(request, parameters);
    return request;
}

// The dumps that the node has made, under the old set's stem.
void TakeDumps(const DeviceFolder& device, const std::string& stem, Replayed& replayed) {
    for (const fs::path& path : device.Dumps()) {
        auto name = ParseDumpName(path.filename().string());
        if (!name) {
            continue;
        }
        name->stem = stem;
        Bytes bytes = ReadFileBytes(path);
        if (name->role == DumpRole::kParameters) {
            replayed.taken = ParseParameterText(bytes).values;
        }
        replayed.files.emplace_back(DumpFileName(*name), std::move(bytes));
    }
}

void CompareOutput(const DumpSet& set, Replayed& replayed) {
    const auto& file = set.file(DumpRole::kOutput);
    if (!file) {
        replayed.notes.emplace_back("the set has no output to compare with");
        return;
    }
    replayed.dumpedOutput =
        ReadImageDump(*file, std::min(replayed.output.width(), file->name.first));
    if (replayed.dumpedOutput.width() == replayed.output.width() &&
        replayed.dumpedOutput.height() == replayed.output.height()) {
        replayed.outputDifference = Compare(replayed.dumpedOutput, replayed.output);
    } else {
        replayed.notes.push_back("the set's output has another size, " +
                                 Text(SizeOf(replayed.dumpedOutput)));
    }
}

void CompareDisparity(const DumpSet& set, const host::Image& depth, Replayed& replayed) {
    const auto& file = set.file(DumpRole::kDisparity);
    const bool made = replayed.result.published->depthPictureSize > 0;
    replayed.disparityDue = file || made;
    if (!file || !made) {
        if (replayed.disparityDue) {
            replayed.notes.emplace_back(file ? "the replay has no disparity to compare"
                                             : "the set has no disparity to compare with");
        }
        return;
    }
    const int pitch = depth.pitch();
    const int height = depth.height();
    const auto expected = ImageBytes(host::Image::Format::Y8, pitch, height);
    const auto bytes = [](std::uintmax_t count) { return std::to_string(count) + " bytes"; };
    replayed.disparity =
        ImageFromBytes(host::Image::Format::Y8, depth.bytes(), pitch, pitch, height);
    if (file->name.first != pitch || file->name.height != height || file->bytes < expected) {
        replayed.notes.push_back("the set's disparity has another size: expected " +
                                 Text({pitch, height}) + ", " + bytes(expected) + ", found " +
                                 Text({file->name.first, file->name.height}) + ", " +
                                 bytes(file->bytes));
        return;
    }
    if (file->bytes > expected) { // a device's buffer keeps the size of the largest capture
        replayed.notes.push_back("the set's disparity has " + bytes(file->bytes) +
                                 ", compared are the first " + std::to_string(expected));
    }
    replayed.dumpedDisparity = ReadImageDump(*file, pitch);
    replayed.disparityDifference = Compare(replayed.dumpedDisparity, replayed.disparity);
}

void RunNode(const Libraries& libraries, const host::UseCase& useCase, host::Request& request,
             Replayed& replayed) {
    std::optional<host::NodeLibrary> library;
    try {
        library.emplace(libraries.node, libraries.engine);
    } catch (const host::PipelineError& error) {
        throw UseError(error.what());
    }
    const Progress progress("processing the request");
    host::Node node(*library, useCase);
    replayed.result = node.Process(request);
    std::ranges::move(node.End(), std::back_inserter(replayed.result.complaints));
}

Replayed ReadSet(const DumpSet& set, const ReplayOptions& options) {
    Replayed replayed;
    replayed.dumped = ReadDumped(set);
    replayed.asked = Changed(replayed.dumped, options);
    replayed.main = ReadInput(set, DumpRole::kMain, options.mainWidth);
    replayed.aux = ReadInput(set, DumpRole::kAux, options.auxWidth);
    if (options.focus) {
        RequireInside(*options.focus, SizeOf(replayed.main));
    }
    const auto& output = set.file(DumpRole::kOutput);
    const int pitch = output && output->name.first >= replayed.main.width() ? output->name.first
                                                                            : replayed.main.pitch();
    replayed.output = host::Image(host::Image::Format::Nv12, replayed.main.width(),
                                  replayed.main.height(), pitch);
    return replayed;
}

} // namespace

bool Replayed::equal() const {
    const bool disparitySame =
        disparityDifference ? disparityDifference->identical() : !disparityDue;
    return !failed() && outputDifference && outputDifference->identical() && disparitySame;
}

DumpParameters Changed(const DumpParameters& dumped, const ReplayOptions& options) {
    DumpParameters asked = dumped;
    asked.blur = options.blur.value_or(asked.blur);
    asked.degree = options.degree.value_or(asked.degree);
    asked.faces = options.faces.value_or(asked.faces);
    if (options.focus) {
        asked.focusX = options.focus->x;
        asked.focusY = options.focus->y;
    }
    if (options.mainCrop) {
        asked.mainCropWidth = options.mainCrop->width;
        asked.mainCropHeight = options.mainCrop->height;
    }
    if (options.auxCrop) {
        asked.auxCropWidth = options.auxCrop->width;
        asked.auxCropHeight = options.auxCrop->height;
    }
    for (DumpedFace& face : asked.faces) {
        face.orient = options.orientation.value_or(face.orient);
    }
    return asked;
}

void CheckFocus(const DumpSet& set, const ReplayOptions& options) {
    if (options.focus) {
        const int width = options.mainWidth.value_or(WidthOf(set, DumpRole::kMain));
        RequireInside(*options.focus, {width, Required(set, DumpRole::kMain).name.height});
        RequireFocus(Changed(ReadDumped(set), options));
    }
}

Replayed Replay(const DumpSet& set, const ReplayOptions& options) {
    Replayed replayed = ReadSet(set, options);
    const Sensors sensors = SensorsOf(options, replayed.asked, replayed);
    replayed.mainSensor = sensors.main;
    replayed.auxSensor = sensors.aux;
    const host::UseCase useCase = UseCaseOf(replayed.asked, sensors, replayed.output);
    host::Request request = RequestOf(options, useCase, sensors, replayed);
    host::Image depth = DepthImage(replayed.main);
    request.inputs = {&replayed.main, &replayed.aux};
    request.output = &replayed.output;
    request.depth = &depth;

    RenderOptions run = options.device;
    run.dump = true;
    run.rotation = Unsigned(replayed.asked.degree);
    const Libraries libraries = FindLibraries(run.node, run.engine);
    SetProperties(run);
    DeviceFolder device(run);
    device.Prepare(sensors.main, sensors.aux);
    replayed.calibration = device.calibration();
    const LogLines log(run.engine.empty());
    RunNode(libraries, useCase, request, replayed);
    replayed.log = log.records();
    TakeDumps(device, set.stem, replayed);
    if (!replayed.result.published) {
        replayed.reasons = log.Reasons();
        return replayed;
    }
    replayed.copied = IsCopy(*replayed.result.published, DebugView());
    if (replayed.copied) {
        replayed.reasons = log.Reasons();
    }
    if (replayed.taken && !(*replayed.taken == replayed.asked)) {
        for (const std::string& difference : DifferencesOf(replayed.asked, *replayed.taken)) {
            replayed.notes.push_back("the node made another parameter of it: " + difference);
        }
    }
    CompareOutput(set, replayed);
    CompareDisparity(set, depth, replayed);
    return replayed;
}
