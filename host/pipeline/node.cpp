#include <cstring>
#include <utility>

#include "host/pipeline/pipeline.h"
#include "host/pipeline/pipeline_session.h"
#include "host/pipeline/request_buffers.h"
#include "host/pipeline/rotation_setting.h"
#include "host/pipeline/text.h"

// The platform's side of a record that the node does not read.
struct ChiNodePostPipelineCreateInput {
    std::uint32_t size;
    std::uint32_t reserved4;
};

namespace host {
namespace {

[[noreturn]] void Refuse(const char* step, CDKResult code) {
    throw PipelineError(Text("the node's ", step, " answers ", code), code);
}

} // namespace

struct Node::Session {
    Session(const NodeLibrary& library, UseCase use)
        : callbacks(library.callbacks()), useCase(std::move(use)),
          pipeline(Sessions::Instance().Open(useCase)) {}
    ~Session() { Sessions::Instance().Close(pipeline->handle()); }

    void Create();
    void Destroy();
    void Negotiate(std::uint32_t width, std::uint32_t height);
    void PipelineCreated();
    void CheckPublishing(const Request& request, const RequestResult& result, int calls);

    const ChiNodeCallbacks& callbacks;
    const UseCase useCase;
    const std::shared_ptr<PipelineSession> pipeline;
    void* node = nullptr;
    BufferNegotiation negotiation{};
    std::uint64_t delay = 0;
};

void Node::Session::Create() {
    ChiNodeCreateInfo info{};
    info.size = sizeof(info);
    info.hChiSession = pipeline->handle();
    info.nodeId = useCase.nodeId;
    info.nodeMode = useCase.nodeMode;
    info.flags = useCase.bareFaceIndex ? kCreateFlagFaceIndexBare : 0;
    info.nodeInstanceId = useCase.nodeInstanceId;
    ChiNodeCreateInfo expected = info;

    const RotationSetting rotation(useCase.imageDegree);
    const CDKResult code = callbacks.create(&info);
    if (code != CDKResultSuccess) {
        if (info.hNodeSession != nullptr) {
            Sessions::Instance().Complain("a node that was not created left a handle");
        }
        Refuse("creation", code);
    }
    if (info.hNodeSession == nullptr) {
        throw PipelineError("the node was created without a handle");
    }
    node = info.hNodeSession;
    expected.hNodeSession = node;
    if (std::memcmp(&info, &expected, sizeof(info)) != 0) {
        pipeline->Complain("creation wrote more of its record than the node's handle");
    }
}

void Node::Session::Destroy() {
    ChiNodedestroyInfo info{sizeof(info), 0, node};
    const CDKResult code = callbacks.destroy(&info);
    if (code != CDKResultSuccess) {
        Sessions::Instance().Complain(Text("the node's destruction answers ", code));
    } else if (info.hNodeSession != nullptr) {
        Sessions::Instance().Complain("destruction left the node's handle in its record");
    }
    node = nullptr;
}

void Node::Session::Negotiate(std::uint32_t width, std::uint32_t height) {
    ChiNodeQueryBufferInfo query{};
    query.size = sizeof(query);
    query.hNodeSession = node;
    BufferNegotiation wanted{};
    wanted.wantedWidth = width;
    wanted.wantedHeight = height;
    std::memcpy(query.negotiation, &wanted, sizeof(wanted));
    if (const CDKResult code = callbacks.queryBufferInfo(&query); code != CDKResultSuccess) {
        Refuse("buffer query", code);
    }
    std::memcpy(&negotiation, query.negotiation, sizeof(negotiation));

    ChiImageFormat format{};
    format.width = width;
    format.height = height;
    format.format = kChiFormatNV12;
    ChiNodeSetBufferPropertiesInfo properties{};
    properties.size = sizeof(properties);
    properties.hNodeSession = node;
    properties.format = &format;
    if (const CDKResult code = callbacks.setBufferInfo(&properties); code != CDKResultSuccess) {
        Refuse("buffer setting", code);
    }
}

void Node::Session::PipelineCreated() {
    const ChiNodePostPipelineCreateInput input{sizeof(input), 0};
    ChiNodePostPipelineCreateOutput output;
    std::memset(static_cast<void*>(&output), 0xA5, sizeof(output));
    ChiNodePostPipelineCreateOutput expected = output;
    if (const CDKResult code = callbacks.postPipelineCreate(node, &input, &output);
        code != CDKResultSuccess) {
        Refuse("answer to the built pipeline", code);
    }
    delay = output.delay;
    expected.delay = delay;
    expected.reserved24 = 0;
    if (std::memcmp(&output, &expected, sizeof(output)) != 0) {
        pipeline->Complain("the answer to the built pipeline has other bytes than it should");
    }
}

void Node::Session::CheckPublishing(const Request& request, const RequestResult& result,
                                    int calls) {
    if (result.code != CDKResultSuccess && result.code != CDKResultEFailed &&
        result.code != CDKResultEInvalidPointer) {
        pipeline->Complain(Text("the request's result is ", result.code));
    }
    const int most = result.code == CDKResultSuccess ? 1 : 0;
    const int least = request.stopped ? 0 : most;
    if (calls < least || calls > most) {
        pipeline->Complain(
            Text("with result ", result.code, ", metadata was published ", calls, " times"));
    }
}

Node::Node(const NodeLibrary& library, UseCase useCase)
    : session_(std::make_unique<Session>(library, std::move(useCase))) {
    session_->Create();
    try {
        if (session_->useCase.outputWidth != 0 && session_->useCase.outputHeight != 0) {
            session_->Negotiate(session_->useCase.outputWidth, session_->useCase.outputHeight);
        }
        session_->PipelineCreated();
    } catch (...) {
        session_->Destroy();
        throw;
    }
}

Node::~Node() {
    session_->Destroy();
    for (std::string& complaint : session_->pipeline->TakeComplaints()) {
        Sessions::Instance().Complain(std::move(complaint));
    }
}

std::uint64_t Node::postCreateDelay() const {
    return session_->delay;
}

BufferNegotiation Node::negotiation() const {
    return session_->negotiation;
}

void* Node::handle() const {
    return session_->node;
}

void Node::SetOutputSize(std::uint32_t width, std::uint32_t height) {
    session_->Negotiate(width, height);
}

std::vector<std::string> Node::TakeComplaints() {
    return session_->pipeline->TakeComplaints();
}

RequestResult Node::Process(Request& request) {
    RequestBuffers buffers(request, session_->node);
    RequestResult result;
    int publishCalls = 0;
    session_->pipeline->BeginRequest(request);
    result.code = session_->callbacks.processRequest(buffers.record());
    result.published = session_->pipeline->EndRequest(request, &publishCalls);

    session_->CheckPublishing(request, result, publishCalls);
    result.complaints = session_->pipeline->TakeComplaints();
    buffers.Check(result.code == CDKResultSuccess && !request.stopped, result.complaints);
    return result;
}

} // namespace host
