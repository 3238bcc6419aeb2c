#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/pipeline/pipeline.h"
#include "platform/chi_image.h"

namespace host {

// The image lists and the record of one request, and what is needed to see afterwards that the node
// wrote nothing that is not its own. Lists end with the request, as on the device.
class RequestBuffers {
public:
    // The request's images must outlive this. `node` is the node's handle.
    RequestBuffers(const Request& request, void* node);

    ChiNodeProcessRequestInfo* record() { return &record_; }

    // Adds a complaint for everything that the node must not have written. `processed`: it was free
    // to write the pixels of its outputs.
    void Check(bool processed, std::vector<std::string>& complaints) const;

private:
    struct Buffer {
        std::string name; // as complaints call it
        const Image* image = nullptr;
        Image before;
        std::unique_ptr<ChiImageList> list;
        ChiImageList listBefore{};
    };

    static void Add(std::vector<Buffer>& buffers, std::string name, Image* image,
                    std::uint32_t port);
    static std::vector<ChiImageList*> Lists(const std::vector<Buffer>& buffers);

    std::vector<Buffer> inputs_;
    std::vector<Buffer> outputs_;
    std::vector<ChiImageList*> inputLists_; // the record's arrays
    std::vector<ChiImageList*> outputLists_;
    ChiNodeProcessRequestInfo record_{};
    ChiNodeProcessRequestInfo recordBefore_{};
};

} // namespace host
