#pragma once

#include "host/pipeline/pipeline.h"
#include "tools/run/node_run.h"
#include "tools/run/run_options.h"

// The sensors of a main and an aux camera.
struct Sensors {
    Size main;
    Size aux;
};

// A main and an aux camera of these sensors, whose output is as large as the main image.
host::UseCase UseCaseOf(const Sensors& sensors, Size image, std::uint32_t rotation);

// What is noted where --face-rotation is given without a face.
inline constexpr char kNoFacesToTurn[] = "--face-rotation: there are no faces to turn";

// The metadata of a camera whose image shows `part` of its sensor. Where no crop gives exactly that
// part, the nearest is taken and a note added.
void SetAppliedCrop(CameraMetadata& camera, Size sensor, Size image, Size part, const char* name,
                    std::vector<std::string>& notes);

// Throw UseError, naming the option: for a point or a face outside the main image, and for a pitch
// that is shorter than a row of the image in `file`.
void CheckFocus(Point focus, Size image);
void CheckFaces(const std::vector<ChiRect>& faces, Size image);
void CheckPitch(int pitch, int width, const std::filesystem::path& file);

// The request of `bokehnode render` for images of these sizes; the images themselves are not set.
host::Request RequestOf(const RenderOptions& options, const Sensors& sensors,
                        const host::UseCase& useCase, Size main, Size aux,
                        std::vector<std::string>& notes);

// What the request was made of.
Json ParametersJson(const RenderOptions& options, const host::Request& request,
                    const Outcome& outcome);
