#include "host/pipeline/request_buffers.h"

#include <cstring>
#include <utility>

namespace host {
namespace {

// Four independent sums of words: fast enough to run over every input of every request. Any change
// of a single word shows, since the factor is odd.
std::uint64_t Checksum(const std::vector<std::uint8_t>& bytes) {
    constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
    std::uint64_t sums[4] = {1, 2, 3, 4};
    std::size_t at = 0;
    for (; at + sizeof(sums) <= bytes.size(); at += sizeof(sums)) {
        std::uint64_t words[4];
        std::memcpy(words, bytes.data() + at, sizeof(words));
        for (int lane = 0; lane < 4; ++lane) {
            sums[lane] = (sums[lane] + words[lane]) * kFactor;
        }
    }
    for (; at < bytes.size(); ++at) {
        sums[0] = (sums[0] + bytes[at]) * kFactor;
    }
    std::uint64_t checksum = 0;
    for (const std::uint64_t sum : sums) {
        checksum = (checksum + (sum ^ (sum >> 32))) * kFactor;
    }
    return checksum;
}

// The bytes of each row behind its image data.
std::vector<std::uint8_t> Padding(const Image& image) {
    std::vector<std::uint8_t> padding;
    for (int plane = 0; plane < image.planeCount(); ++plane) {
        for (int row = 0; row < image.planeRows(plane); ++row) {
            const std::uint8_t* const start =
                image.plane(plane) + static_cast<std::ptrdiff_t>(row) * image.pitch();
            padding.insert(padding.end(), start + image.rowBytes(plane), start + image.pitch());
        }
    }
    return padding;
}

ChiImageList ListOf(Image& image, std::uint32_t port, std::uint32_t nv12Code) {
    ChiImageList list{};
    list.size = sizeof(list);
    list.portIndex = port;
    list.format.width = static_cast<std::uint32_t>(image.width());
    list.format.height = static_cast<std::uint32_t>(image.height());
    list.format.format = image.format() == Image::Format::Nv12 ? nv12Code : kChiFormatY8;
    list.format.numberOfPlanes = static_cast<std::uint32_t>(image.planeCount());
    for (int plane = 0; plane < image.planeCount(); ++plane) {
        list.format.plane[plane].width = static_cast<std::uint32_t>(image.rowBytes(plane));
        list.format.plane[plane].height = static_cast<std::uint32_t>(image.planeRows(plane));
        list.format.plane[plane].stride = static_cast<std::uint32_t>(image.pitch());
        list.format.planeSize[plane] = image.planeSize(plane);
        list.planeAddress[plane] = image.plane(plane);
    }
    return list;
}

} // namespace

RequestBuffers::RequestBuffers(const Request& request, void* node)
    : checkImages_(request.checkImages) {
    for (std::size_t input = 0; input < request.inputs.size(); ++input) {
        Add(inputs_, "input " + std::to_string(input), request.inputs[input],
            request.inputPorts[input], request.nv12Code);
    }
    if (request.depthFirst) {
        Add(outputs_, "the depth output", request.depth, 1, request.nv12Code);
    }
    Add(outputs_, "the output", request.output, 0, request.nv12Code);
    if (!request.depthFirst) {
        Add(outputs_, "the depth output", request.depth, 1, request.nv12Code);
    }
    inputLists_ = Lists(inputs_);
    outputLists_ = Lists(outputs_);

    record_.size = sizeof(record_);
    record_.hNodeSession = node;
    record_.frameNumber = request.frameNumber;
    record_.inputNum = static_cast<std::uint32_t>(inputLists_.size());
    record_.inputs = inputLists_.data();
    record_.outputNum = static_cast<std::uint32_t>(outputLists_.size());
    record_.outputs = outputLists_.data();
    recordBefore_ = record_;
}

void RequestBuffers::Add(std::vector<Buffer>& buffers, std::string name, Image* image,
                         std::uint32_t port, std::uint32_t nv12Code) {
    if (image == nullptr) {
        return;
    }
    Buffer buffer;
    buffer.name = std::move(name);
    buffer.image = image;
    buffer.list = std::make_unique<ChiImageList>(ListOf(*image, port, nv12Code));
    buffer.listBefore = *buffer.list;
    if (checkImages_) {
        buffer.checksumBefore = Checksum(image->bytes());
        buffer.paddingBefore = Padding(*image);
    }
    buffers.push_back(std::move(buffer));
}

std::vector<ChiImageList*> RequestBuffers::Lists(const std::vector<Buffer>& buffers) {
    std::vector<ChiImageList*> lists;
    lists.reserve(buffers.size()); // no room behind the last: a read past it is seen
    for (const Buffer& buffer : buffers) {
        lists.push_back(buffer.list.get());
    }
    return lists;
}

void RequestBuffers::Check(bool outputsFree, std::vector<std::string>& complaints) const {
    if (std::memcmp(&record_, &recordBefore_, sizeof(record_)) != 0) {
        complaints.push_back("the request record was written");
    }
    for (const auto* buffers : {&inputs_, &outputs_}) {
        for (const Buffer& buffer : *buffers) {
            if (std::memcmp(buffer.list.get(), &buffer.listBefore, sizeof(ChiImageList)) != 0) {
                complaints.push_back("the image list of " + buffer.name + " was written");
            }
        }
    }
    if (!checkImages_) {
        return;
    }
    for (const Buffer& buffer : inputs_) {
        if (Checksum(buffer.image->bytes()) != buffer.checksumBefore) {
            complaints.push_back("the pixels of " + buffer.name + " were written");
        }
    }
    for (const Buffer& buffer : outputs_) {
        CheckOutput(buffer, outputsFree, complaints);
    }
}

void RequestBuffers::CheckOutput(const Buffer& buffer, bool outputsFree,
                                 std::vector<std::string>& complaints) const {
    if (!outputsFree && Checksum(buffer.image->bytes()) != buffer.checksumBefore) {
        complaints.push_back(buffer.name + " was written for a request that was not processed");
    }
    // The depth output takes raw bytes, one after the other, whatever its pitch.
    if (buffer.image->format() == Image::Format::Nv12 &&
        Padding(*buffer.image) != buffer.paddingBefore) {
        complaints.push_back("the padding of " + buffer.name + " was written");
    }
}

} // namespace host
