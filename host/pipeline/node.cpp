#include <condition_variable>
#include <cstring>
#include <iterator>
#include <mutex>
#include <utility>

#include <fmt/format.h>

#include "host/control/faults.h"
#include "host/pipeline/pipeline.h"
#include "host/pipeline/pipeline_session.h"
#include "host/pipeline/request_buffers.h"
#include "host/settings/settings_control.h"

// The platform's side of a record that the node does not read.
struct ChiNodePostPipelineCreateInput {
    std::uint32_t size;
    std::uint32_t reserved4;
};

namespace host {
namespace {

// Holds the platform's rotation setting while a node is created. The setting is one for the whole
// process: creations that want the same value run side by side, others wait for one another.
class RotationSetting {
public:
    explicit RotationSetting(std::uint32_t degrees) {
        std::unique_lock lock(mutex_);
        freed_.wait(lock, [degrees] { return holders_ == 0 || setting_ == degrees; });
        if (holders_ == 0) {
            setting_ = degrees;
            SetImageDegree(degrees);
        }
        ++holders_;
    }
    ~RotationSetting() {
        const std::lock_guard lock(mutex_);
        --holders_;
        freed_.notify_all();
    }
    RotationSetting(const RotationSetting&) = delete;
    RotationSetting& operator=(const RotationSetting&) = delete;

private:
    static inline std::mutex mutex_;
    static inline std::condition_variable freed_;
    static inline int holders_ = 0;
    static inline std::uint32_t setting_ = 0;
};

// Throws unless the node's answer to this step is success.
void Require(CDKResult code, const char* step) {
    if (code != CDKResultSuccess) {
        throw PipelineError(fmt::format("the node's {} answers {}", step, code), code);
    }
}

// Constructor and destructor of Node have no result in which they could return complaints.
void KeepForLater(const std::vector<std::string>& complaints) {
    for (const std::string& complaint : complaints) {
        Sessions::Instance().Complain(complaint);
    }
}

// Calls one of the node's callbacks, under this name for who observes calls.
template <typename Callback, typename... Arguments>
CDKResult Observed(const char* name, Callback callback, Arguments... arguments) {
    Call call(name);
    const CDKResult code = callback(arguments...);
    call.Tell([code] { return std::to_string(code); });
    return code;
}

} // namespace

// A node and the pipeline session that it talks to. The session outlives the node, which may still
// call the platform while it ends.
struct Node::Session {
    explicit Session(const ChiNodeCallbacks& table)
        : callbacks(table), pipeline(Sessions::Instance().Open()) {}
    ~Session() { Sessions::Instance().Close(pipeline->handle()); }

    void Create(std::uint32_t imageDegree);
    void Negotiate(Size output);
    void PipelineCreated();
    // Destroys the node, if there is one, and returns the complaints that were not taken yet.
    std::vector<std::string> End();

    const ChiNodeCallbacks& callbacks;
    const std::shared_ptr<PipelineSession> pipeline;
    void* node = nullptr; // the node's handle, null while there is no node
};

void Node::Session::Create(std::uint32_t imageDegree) {
    ChiNodeCreateInfo info{};
    info.size = sizeof(info);
    info.hChiSession = pipeline->handle();
    info.nodeId = kNodeId;
    // The record as it must be afterwards: the handle alone is the node's to write.
    ChiNodeCreateInfo expected = info;

    // The setting is held until the node's creation has returned, since the node reads it
    // meanwhile.
    const RotationSetting rotation(imageDegree);
    const CDKResult code = Observed("NodeCreate", callbacks.create, &info);
    if (code != CDKResultSuccess && info.hNodeSession != nullptr) {
        pipeline->Complain("a node that was not created left a handle");
    }
    Require(code, "creation");
    if (info.hNodeSession == nullptr) {
        throw PipelineError("the node was created without a handle");
    }
    node = info.hNodeSession;
    expected.hNodeSession = node;
    if (std::memcmp(&info, &expected, sizeof(info)) != 0) {
        pipeline->Complain("creation wrote more of its record than the node's handle");
    }
}

void Node::Session::Negotiate(Size output) {
    ChiNodeQueryBufferInfo query{};
    query.size = sizeof(query);
    query.hNodeSession = node;
    // The node hands this part of the record to the utility library without reading it.
    BufferNegotiation wanted{};
    wanted.wantedWidth = static_cast<std::uint32_t>(output.width);
    wanted.wantedHeight = static_cast<std::uint32_t>(output.height);
    std::memcpy(query.negotiation, &wanted, sizeof(wanted));
    Require(Observed("NodeQueryBufferInfo", callbacks.queryBufferInfo, &query), "buffer query");

    ChiImageFormat format{};
    format.width = wanted.wantedWidth;
    format.height = wanted.wantedHeight;
    format.format = kChiFormatNV12;
    ChiNodeSetBufferPropertiesInfo properties{};
    properties.size = sizeof(properties);
    properties.hNodeSession = node;
    properties.format = &format;
    Require(Observed("NodeSetBufferInfo", callbacks.setBufferInfo, &properties), "buffer setting");
}

void Node::Session::PipelineCreated() {
    const ChiNodePostPipelineCreateInput input{sizeof(input), 0};
    ChiNodePostPipelineCreateOutput output;
    // With zeros in place of this pattern, a field that the node should set to 0 and forgot would
    // look right.
    std::memset(static_cast<void*>(&output), 0xA5, sizeof(output));
    ChiNodePostPipelineCreateOutput expected = output;
    Require(Observed("NodePostPipelineCreate", callbacks.postPipelineCreate, node, &input, &output),
            "answer to the built pipeline");
    expected.delay = output.delay;
    expected.reserved24 = 0;
    if (std::memcmp(&output, &expected, sizeof(output)) != 0) {
        pipeline->Complain("the answer to the built pipeline has other bytes than it should");
    }
}

std::vector<std::string> Node::Session::End() {
    if (node != nullptr) {
        ChiNodedestroyInfo info{sizeof(info), 0, node};
        const CDKResult code = Observed("NodeDestroy", callbacks.destroy, &info);
        if (code != CDKResultSuccess) {
            pipeline->Complain(fmt::format("the node's destruction answers {}", code));
        } else if (info.hNodeSession != nullptr) {
            pipeline->Complain("destruction left the node's handle in its record");
        }
        node = nullptr;
    }
    return pipeline->TakeComplaints();
}

Node::Node(const NodeLibrary& library, const UseCase& useCase)
    : session_(std::make_unique<Session>(library.callbacks_)) {
    try {
        session_->Create(useCase.imageDegree);
        session_->Negotiate(useCase.output);
        session_->PipelineCreated();
    } catch (...) {
        KeepForLater(session_->End());
        throw;
    }
}

Node::~Node() {
    if (session_) {
        KeepForLater(session_->End());
    }
}

RequestResult Node::Process(Request& request) {
    // The buffers copy images and records before the node sees them; Check compares afterwards.
    RequestBuffers buffers(request, session_->node);
    session_->pipeline->BeginRequest(request);
    const CDKResult code =
        Observed("NodeProcRequest", session_->callbacks.processRequest, buffers.record());
    RequestResult result = session_->pipeline->EndRequest(request, code);
    buffers.Check(code == CDKResultSuccess, result.complaints);
    return result;
}

std::vector<std::string> Node::End() {
    std::vector<std::string> complaints;
    if (session_) {
        complaints = session_->End();
        session_.reset();
    }
    std::ranges::move(TakeStrayComplaints(), std::back_inserter(complaints));
    return complaints;
}

Request PlainRequest(const UseCase& useCase, std::uint64_t frameNumber) {
    Request request;
    request.frameNumber = frameNumber;
    request.metadata.blurLevel = 100;
    request.metadata.masterCameraId = 0;
    std::uint32_t id = 0;
    for (const Size sensor : {useCase.mainSensor, useCase.auxSensor}) {
        CameraMetadata& camera = request.metadata.cameraMetadata[id];
        const ChiRect whole{0, 0, static_cast<std::uint32_t>(sensor.width),
                            static_cast<std::uint32_t>(sensor.height)};
        camera.cameraId = id++;
        camera.scalerCropRegion = camera.ifeAppliedCrop = camera.sensorAppliedCrop = whole;
        camera.ifeResidualCrop = camera.activeArraySize = whole;
        // The middle fifth of each side.
        camera.focusRect = {sensor.width * 2 / 5, sensor.height * 2 / 5, sensor.width * 3 / 5 - 1,
                            sensor.height * 3 / 5 - 1};
        camera.afMode = kAfModeContinuousPicture;
    }
    return request;
}

} // namespace host
