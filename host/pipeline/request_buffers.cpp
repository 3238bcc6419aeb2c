#include "host/pipeline/request_buffers.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <fmt/format.h>

namespace host {
namespace {

// True if the bytes of each row behind its image data are the same. Both images have one layout.
bool SamePadding(const Image& a, const Image& b) {
    for (int plane = 0; plane < a.planeCount(); ++plane) {
        const int used = a.rowBytes(plane);
        for (int y = 0; y < a.planeRows(plane); ++y) {
            if (!std::equal(a.row(plane, y) + used, a.row(plane, y) + a.pitch(),
                            b.row(plane, y) + used)) {
                return false;
            }
        }
    }
    return true;
}

// Plane widths are in bytes: see platform/chi_image.h.
ChiImageList ListOf(Image& image, std::uint32_t port) {
    ChiImageList list{};
    list.size = sizeof(list);
    list.portIndex = port;
    list.format.width = static_cast<std::uint32_t>(image.width());
    list.format.height = static_cast<std::uint32_t>(image.height());
    list.format.format = image.format() == Image::Format::Nv12 ? kChiFormatNV12 : kChiFormatY8;
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

RequestBuffers::RequestBuffers(const Request& request, void* node) {
    for (std::uint32_t input = 0; input < request.inputs.size(); ++input) {
        Add(inputs_, fmt::format("input {}", input), request.inputs[input], input);
    }
    Add(outputs_, "the output", request.output, 0);
    if (request.depth != nullptr) {
        Add(outputs_, "the depth output", request.depth, 1);
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
                         std::uint32_t port) {
    Buffer& buffer = buffers.emplace_back();
    buffer.name = std::move(name);
    buffer.image = image;
    // The whole image is kept, since the node must not write a byte of an input or of padding.
    buffer.before = *image;
    buffer.list = std::make_unique<ChiImageList>(ListOf(*image, port));
    buffer.listBefore = *buffer.list;
}

std::vector<ChiImageList*> RequestBuffers::Lists(const std::vector<Buffer>& buffers) {
    std::vector<ChiImageList*> lists;
    lists.reserve(buffers.size()); // exact, so that the address sanitizer sees a read past the last
    for (const Buffer& buffer : buffers) {
        lists.push_back(buffer.list.get());
    }
    return lists;
}

void RequestBuffers::Check(bool processed, std::vector<std::string>& complaints) const {
    if (std::memcmp(&record_, &recordBefore_, sizeof(record_)) != 0) {
        complaints.push_back("the request record was written");
    }
    for (const auto* buffers : {&inputs_, &outputs_}) {
        for (const Buffer& buffer : *buffers) {
            if (std::memcmp(buffer.list.get(), &buffer.listBefore, sizeof(ChiImageList)) != 0) {
                complaints.push_back(fmt::format("the image list of {} was written", buffer.name));
            }
        }
    }
    for (const Buffer& buffer : inputs_) {
        if (buffer.image->bytes() != buffer.before.bytes()) {
            complaints.push_back(fmt::format("the pixels of {} were written", buffer.name));
        }
    }
    for (const Buffer& buffer : outputs_) {
        if (!processed && buffer.image->bytes() != buffer.before.bytes()) {
            complaints.push_back(
                fmt::format("{} was written for a request that was not processed", buffer.name));
        }
        // The depth output takes raw bytes, one after the other, whatever its pitch.
        if (buffer.image->format() == Image::Format::Nv12 &&
            !SamePadding(*buffer.image, buffer.before)) {
            complaints.push_back(fmt::format("the padding of {} was written", buffer.name));
        }
    }
}

} // namespace host
