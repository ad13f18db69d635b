// The convention of the functions that hand out a list into the caller's array (the slot list,
// the mechanism list, a page of search results): a null array asks only for the size, which is
// written through the count pointer; otherwise the array must have room for the announced
// number of items, else CKR_BUFFER_TOO_SMALL with "<name>: buffer too small, *pulCount=<room>
// <label>=<announced>" and the count left as the caller set it; then the items are copied and
// the count set to how many were written.
//
// What a function announces and what it finally writes may differ (the slot list announces
// every connected device but writes only those that hold a token); each function decides.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "core/export_call.h"

template <typename Item>
class ListOutput {
public:
    ListOutput(const ExportCall& call, Item* array, CK_ULONG* count)
        : call_(call), array_(array), count_(count) {}

    bool isSizeQuery() const { return array_ == nullptr; }

    // The size query's answer, or the refusal of a buffer too small for `announced` items;
    // nothing when the call goes on to fill the array.
    std::optional<CK_RV> answerSizeOrShortage(std::size_t announced, const char* label) const {
        if (isSizeQuery()) {
            *count_ = static_cast<CK_ULONG>(announced);
            return CKR_OK;
        }
        if (announced > *count_) {
            return call_.reject(CKR_BUFFER_TOO_SMALL,
                                "buffer too small, *pulCount=" + decimalText(*count_) + " " +
                                    label + "=" + decimalText(announced));
        }
        return std::nullopt;
    }

    // Copies the items (at most as many as were announced) and writes their number.
    CK_RV fill(const Item* items, std::size_t itemCount) const {
        for (std::size_t i = 0; i < itemCount; ++i) {
            array_[i] = items[i];
        }
        *count_ = static_cast<CK_ULONG>(itemCount);
        return CKR_OK;
    }
    CK_RV fill(const std::vector<Item>& items) const { return fill(items.data(), items.size()); }

private:
    const ExportCall& call_;
    Item* array_;
    CK_ULONG* count_;
};
