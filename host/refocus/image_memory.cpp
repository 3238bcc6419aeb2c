#include "host/refocus/image_memory.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace refocus {
namespace {

class Allocator final : public cv::MatAllocator {
public:
    cv::UMatData* allocate(int dimensions, const int* sizes, int type, void* /*pixels*/,
                           std::size_t* steps, cv::AccessFlag /*flags*/,
                           cv::UMatUsageFlags /*usage*/) const override {
        std::size_t size = CV_ELEM_SIZE(type);
        for (int i = dimensions - 1; i >= 0; --i) {
            steps[i] = size;
            size *= static_cast<std::size_t>(sizes[i]);
        }
        cv::UMatData* block = Take(size);
        if (block == nullptr) {
            auto fresh = std::make_unique<cv::UMatData>(this);
            fresh->data = fresh->origdata = static_cast<uchar*>(cv::fastMalloc(size));
            fresh->size = size;
            block = fresh.release();
        }
        block->userdata = block; // used since FreeUnused
        return block;
    }

    bool allocate(cv::UMatData* block, cv::AccessFlag /*flags*/,
                  cv::UMatUsageFlags /*usage*/) const override {
        return block != nullptr;
    }

    void deallocate(cv::UMatData* block) const override {
        const std::lock_guard lock(mutex_);
        kept_.push_back(block);
    }

    template <typename Condition>
    void FreeIf(const Condition& condition) {
        const std::lock_guard lock(mutex_);
        const auto end = std::partition(kept_.begin(), kept_.end(), std::not_fn(condition));
        for (auto block = end; block != kept_.end(); ++block) {
            cv::fastFree((*block)->origdata);
            delete *block;
        }
        kept_.erase(end, kept_.end());
        for (cv::UMatData* block : kept_) {
            block->userdata = nullptr;
        }
    }

private:
    // The smallest kept block of at least this size and at most twice of it, or null.
    cv::UMatData* Take(std::size_t size) const {
        const std::lock_guard lock(mutex_);
        auto best = kept_.end();
        for (auto block = kept_.begin(); block != kept_.end(); ++block) {
            if ((*block)->size >= size && (*block)->size <= 2 * size &&
                (best == kept_.end() || (*block)->size < (*best)->size)) {
                best = block;
            }
        }
        if (best == kept_.end()) {
            return nullptr;
        }
        cv::UMatData* block = *best;
        kept_.erase(best);
        return block;
    }

    mutable std::mutex mutex_;
    mutable std::vector<cv::UMatData*> kept_;
};

// Never destroyed, since images may outlive all static objects.
Allocator& TheAllocator() {
    static auto* allocator = new Allocator;
    return *allocator;
}

} // namespace

cv::Mat NewImage(cv::Size size, int type) {
    cv::Mat image;
    image.allocator = &TheAllocator();
    image.create(size, type);
    return image;
}

void FreeUnusedImageMemory() {
    TheAllocator().FreeIf([](const cv::UMatData* block) { return block->userdata == nullptr; });
}

void FreeImageMemory() {
    TheAllocator().FreeIf([](const cv::UMatData*) { return true; });
}

} // namespace refocus
