#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/picture/geometry.h"
#include "host/picture/image.h"
#include "platform/chi_metadata.h"
#include "platform/chi_node.h"

// Plays the camera HAL to the node: loads its library, gives it the platform's callback table,
// makes nodes, negotiates buffers, runs requests and takes the results. It checks what the node
// hands back (record sizes, tag ids and their order, nothing touched that is not the node's) and
// returns every violation of the interface's rules as a complaint, a sentence without a full stop.
//
// Errors that stop work are thrown as PipelineError; what the node answers is returned.
namespace host {

class PipelineError : public std::runtime_error {
public:
    explicit PipelineError(const std::string& text, CDKResult code = CDKResultSuccess)
        : std::runtime_error(text), code_(code) {}

    // What the node answered; success if the failure is not an answer of the node.
    CDKResult code() const { return code_; }

private:
    CDKResult code_;
};

// The node's library and the engine's, as the HAL loads them: the engine first and globally, so
// that any library of that interface can be put in. At most one at a time. The engine stays loaded
// to the end of the process, so that every later object must name the same one.
class NodeLibrary {
public:
    // Exchanges callback tables and vendor tags with the node. Throws PipelineError if a library
    // does not load or a callback of the node does not answer as it must.
    NodeLibrary(const std::filesystem::path& node, const std::filesystem::path& engine);
    ~NodeLibrary();
    NodeLibrary(const NodeLibrary&) = delete;
    NodeLibrary& operator=(const NodeLibrary&) = delete;

private:
    friend class Node;

    void Load(const std::filesystem::path& node, const std::filesystem::path& engine);
    void Unload();

    void* engine_ = nullptr;
    void* node_ = nullptr;
    ChiNodeCallbacks callbacks_{};
};

// What is fixed for a node's life. The main camera has id 0, input 0 and the greater master rank,
// the aux camera id 1 and input 1.
struct UseCase {
    Size mainSensor; // active arrays, in sensor pixels
    Size auxSensor;
    Size output;                   // of the image that requests ask for
    std::uint32_t imageDegree = 0; // rotation of the images: 0, 90, 180, 270
};

// One still capture. Images are the caller's and must outlive the call. Input i is the image of
// port i; `metadata.cameraMetadata[i]` describes its camera. The node may write into the metadata.
struct Request {
    std::uint64_t frameNumber = 0;
    std::array<Image*, 2> inputs{}; // main, aux
    Image* output = nullptr;
    Image* depth = nullptr; // Y8; null: the request has no depth output
    InputMetadataBokeh metadata{};
    std::optional<std::uint32_t> selectedFace;
    std::optional<std::int32_t> faceRotation; // degrees
};

// A request whose metadata describes a plain capture on this use case: whole sensors, no crop, no
// faces, the auto-focus region on the middle, the main camera master, blur level 100. Its images
// are left to the caller.
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
    std::optional<Published> published; // absent if the node published nothing
    // The node's violations of the interface's rules since the last request, or since creation.
    std::vector<std::string> complaints;
};

// One node of the loaded library, from creation to its end. One thread at a time; several nodes may
// live side by side, each on a thread of its own.
class Node {
public:
    // Creates, negotiates and tells the node that the pipeline is built. Throws PipelineError with
    // the node's result code if the node refuses. The library must outlive the node.
    Node(const NodeLibrary& library, const UseCase& useCase);
    // Ends the node if End was not called. What is found then is kept for TakeStrayComplaints.
    ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    // Not to be called after End.
    RequestResult Process(Request& request);

    // Destroys the node and returns the complaints that no request has reported: those about its
    // end, and the stray ones so far.
    std::vector<std::string> End();

private:
    struct Session;
    std::unique_ptr<Session> session_;
};

// Returns and forgets the complaints that belong to no living node: calls with a session that is
// not open, and what was found while a node was destroyed without End. Thread-safe.
std::vector<std::string> TakeStrayComplaints();

} // namespace host
