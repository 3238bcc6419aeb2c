#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/pipeline/pipeline.h"

namespace host {

// The image lists and the record of one request, and what is needed to see afterwards that the node
// wrote nothing that is not its own. Lists end with the request, as on the device.
class RequestBuffers {
public:
    // The request's images must outlive this.
    RequestBuffers(const Request& request, void* node);

    ChiNodeProcessRequestInfo* record() { return &record_; }

    // `outputsFree`: the node was free to write its outputs.
    void Check(bool outputsFree, std::vector<std::string>& complaints) const;

private:
    struct Buffer {
        std::string name; // as complaints call it
        const Image* image = nullptr;
        std::unique_ptr<ChiImageList> list;
        ChiImageList listBefore{};
        std::uint64_t checksumBefore = 0;
        std::vector<std::uint8_t> paddingBefore;
    };

    void Add(std::vector<Buffer>& buffers, std::string name, Image* image, std::uint32_t port,
             std::uint32_t nv12Code);
    static std::vector<ChiImageList*> Lists(const std::vector<Buffer>& buffers);
    void CheckOutput(const Buffer& buffer, bool outputsFree,
                     std::vector<std::string>& complaints) const;

    const bool checkImages_;
    std::vector<Buffer> inputs_;
    std::vector<Buffer> outputs_;
    std::vector<ChiImageList*> inputLists_; // the record's arrays
    std::vector<ChiImageList*> outputLists_;
    ChiNodeProcessRequestInfo record_{};
    ChiNodeProcessRequestInfo recordBefore_{};
};

} // namespace host
