// SPDX-License-Identifier: Apache-2.0
#include "model/db_component_descent.h"

#include <errno.h>

#include "platform/os_wrapper.h"

namespace tavdb {

Descent::~Descent() {
    while (depth_ > 0)
        leave();
}

/// Near the start every place is compared. Deeper down one is remembered, and a deeper one ever more rarely: a circle
/// then meets it again.
bool Descent::standsAbove(uint32_t key) const {
    if (depth_ == 0)
        return false;
    if (key == start_ || (markDepth_ != 0 && key == markKey_))
        return true;
    for (uint32_t level = 0; level + 1 < depth_ && level < kInside; level++) {
        if (inside_[level].key == key)
            return true;
    }
    return false;
}

bool Descent::admits(uint32_t key) {
    if (over_)
        return false;
    if (standsAbove(key)) {
        traceError(circle_, key, depth_);
        return false;
    }
    visits_ += 1;
    over_ = visits_ > kTimesOver * (uint64_t{largestKey_} / sizeof(tavDBMComponent) + kFewest);
    if (over_)
        traceError(endless_, key, static_cast<uint32_t>(visits_));
    return !over_;
}

bool Descent::grow() {
    auto *const chunk = static_cast<Chunk *>(tavOSWSubAllocMem(sizeof(Chunk)));
    if (chunk == nullptr)
        return false;
    chunk->below = chunk_;
    chunk_ = chunk;
    return true;
}

int32_t Descent::enter(const Place &place) {
    const uint32_t inChunk = (depth_ - kInside) % kPerChunk;
    if (depth_ >= kInside && inChunk == 0 && !grow()) {
        const int error = errno;
        over_ = true;
        failure_ = fail(session_, TAVDB_ERR_MEMORY, static_cast<uint32_t>(error), endless_ + 1, depth_, error);
        return failure_;
    }
    if (depth_ >= nextMark_) {
        markDepth_ = depth_;
        markKey_ = top_->key;
        nextMark_ = 2 * depth_;
    }
    top_ = depth_ < kInside ? &inside_[depth_] : &chunk_->places[inChunk];
    *top_ = place;
    depth_ += 1;
    return 0;
}

void Descent::leave() {
    depth_ -= 1;
    if (depth_ >= kInside && (depth_ - kInside) % kPerChunk == 0) {
        Chunk *const left = chunk_;
        chunk_ = left->below;
        tavOSWOrgFreeMemPart(0, left);
    }
    if (markDepth_ != 0 && depth_ <= markDepth_) {
        markDepth_ = 0;
        nextMark_ = depth_;
    }
    if (depth_ == 0)
        top_ = nullptr;
    else
        top_ = depth_ <= kInside ? &inside_[depth_ - 1] : &chunk_->places[(depth_ - 1 - kInside) % kPerChunk];
}

uint32_t Descent::nextChild(Site site) {
    while (depth_ > 0 && !over_) {
        const bool isFirst = top_->siblings.isFresh();
        const uint32_t key = isFirst ? top_->key : comp_getNextSibling(session_, top_->key);
        if (key != 0 && !top_->siblings.meetsAgain(key, site)) {
            top_->key = key;
            return key;
        }
        leave();
    }
    return 0;
}

}  // namespace tavdb
