#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/chinodeutils/node_utils_control.h"
#include "host/picture/image.h"
#include "platform/chi_image.h"
#include "platform/chi_metadata.h"
#include "platform/chi_node.h"

// Plays the camera HAL to the node: loads its library, gives it the platform's callback table,
// makes nodes, negotiates buffers, runs requests and takes the results. It checks what the node
// hands back (record sizes, tag ids and their order, nothing touched that is not the node's) and
// puts what is wrong into words.
//
// Errors that stop work are thrown as PipelineError; what the node answers is returned.
namespace host {

class PipelineError : public std::runtime_error {
public:
    explicit PipelineError(const std::string& text, CDKResult code = CDKResultSuccess)
        : std::runtime_error(text), code_(code) {}

    // What the node answered; success where the failure is not an answer of the node.
    CDKResult code() const { return code_; }

private:
    CDKResult code_;
};

// The node's library and the engine's, as the HAL loads them. Loaded once per process; the engine
// first and globally, so that any library of that interface can be put in. The platform knows the
// node's vendor tags and the node the platform's functions once the constructor is through. Throws
// PipelineError where a library does not load or the node's callbacks do not answer as they must.
class NodeLibrary {
public:
    NodeLibrary(const std::filesystem::path& node, const std::filesystem::path& engine);
    ~NodeLibrary();
    NodeLibrary(const NodeLibrary&) = delete;
    NodeLibrary& operator=(const NodeLibrary&) = delete;

    const ChiNodeCallbacks& callbacks() const { return callbacks_; }

private:
    void Load(const std::filesystem::path& node, const std::filesystem::path& engine);
    void Unload();

    void* engine_ = nullptr;
    void* node_ = nullptr;
    ChiNodeCallbacks callbacks_{};
};

// One physical camera of the logical camera.
struct Camera {
    std::uint32_t id = 0;
    float masterRank = 0;
    std::uint32_t inputBufferIndex = 0; // the node's input that carries this camera's image
    std::uint32_t activeWidth = 0;      // sensor pixels
    std::uint32_t activeHeight = 0;
};

// What is fixed for a node's life, but for the output size.
struct UseCase {
    std::vector<Camera> cameras; // at most 8
    std::uint32_t primaryCameraId = 0;
    std::uint32_t imageDegree = 0; // 0, 90, 180, 270
    std::uint32_t nodeId = 0x10001;
    std::uint32_t nodeInstanceId = 0;
    std::uint32_t nodeMode = 0;
    bool bareFaceIndex = false;    // "SelectFaceIndex" is published outside the request pool
    std::uint32_t outputWidth = 0; // either 0: no output is negotiated at creation
    std::uint32_t outputHeight = 0;
    std::optional<std::uint32_t> induceSleep; // data of the platform's debug tag
};

// A main and an aux camera of these sensor sizes: ids 0 and 1, inputs 0 and 1, the first primary.
UseCase DualCamera(std::uint32_t mainWidth, std::uint32_t mainHeight, std::uint32_t auxWidth,
                   std::uint32_t auxHeight);

// One still capture. Images are the caller's and must outlive the call. Input i is the image of
// port i; `metadata.cameraMetadata[i]` describes its camera. The node may write into both.
struct Request {
    std::uint64_t frameNumber = 0;
    std::array<Image*, 2> inputs{};
    Image* output = nullptr;
    Image* depth = nullptr; // Y8; null: the request has no depth output
    InputMetadataBokeh metadata{};
    bool hasMetadata = true;
    std::optional<std::uint32_t> selectedFace;
    std::optional<std::int32_t> faceRotation; // degrees
    bool stopped = false;                     // answer the node's query with "stop"

    // Ways in which platforms differ, and faults of theirs. A null input is left out of the record.
    std::array<std::uint32_t, 2> inputPorts{0, 1};
    std::uint32_t nv12Code = kChiFormatNV12; // format code of the NV12 images
    bool depthFirst = false;                 // the depth output comes before the image
    bool checkImages = true; // look for writes where none belong; a pass over each input, twice
};

// A request whose metadata describes a plain capture on this use case: whole sensors, no crop, no
// faces, the auto-focus region on the middle, the first camera master, blur level 100.
Request PlainRequest(const UseCase& useCase, std::uint64_t frameNumber);

// What the node published for a request.
struct Published {
    std::string supportedFeature;
    std::uint8_t currentMode = 0;
    std::uint64_t processedFrameNumber = 0;
    std::array<std::uint32_t, 2> frameDimension{};
    std::int32_t depthPictureSize = 0;
    OutputMetadataBokeh result{};
    std::array<std::int32_t, 2> focusPoint{};
};

struct RequestResult {
    CDKResult code = CDKResultSuccess;
    std::optional<Published> published; // absent where the node published nothing
    // What the node did against the interface's rules, during the request or since the last one.
    std::vector<std::string> complaints;
};

// One node of the loaded library, from creation to destruction. One request at a time; several
// nodes may live side by side and be driven by a thread each.
class Node {
public:
    // Creates, negotiates and tells the node that the pipeline is built. Throws PipelineError with
    // the node's result code where the node refuses. The library must outlive the node.
    Node(const NodeLibrary& library, UseCase useCase);
    ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    // What the node asked for after creation.
    std::uint64_t postCreateDelay() const;

    // What the platform's negotiation filled in.
    BufferNegotiation negotiation() const;

    // Negotiates another output size. Throws PipelineError where the node refuses.
    void SetOutputSize(std::uint32_t width, std::uint32_t height);

    RequestResult Process(Request& request);

    // Complaints that no request has reported yet, such as those of creation.
    std::vector<std::string> TakeComplaints();

    void* handle() const;

private:
    struct Session;
    std::unique_ptr<Session> session_;
};

// Complaints that belong to no living node: calls with a foreign session, or found in a node's end.
std::vector<std::string> TakeStrayComplaints();

} // namespace host
