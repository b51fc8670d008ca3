// SPDX-License-Identifier: Apache-2.0
// The nodes of a provider's singly linked list, kept in order beside it:
// appending is constant time, and a table walk can resume at any row without
// passing the ones before it. Rows must be appended in ascending index order.
#pragma once

#include <algorithm>
#include <new>
#include <vector>

template <typename Node> class RowIndex {
  public:
    // Links node after the last row (or as head when there is none) and
    // indexes it. false, with nothing linked, when memory runs out.
    bool append(Node *&head, Node *node) noexcept {
        try {
            rows_.push_back(node);
        } catch (const std::bad_alloc &) {
            return false;
        }
        if (rows_.size() > 1) {
            rows_[rows_.size() - 2]->next = node;
        } else {
            head = node;
        }
        return true;
    }
    // The first row whose index_of(row) is index or more; null past the last.
    template <typename IndexOf> Node *from(unsigned long index, IndexOf index_of) const {
        const auto at = std::lower_bound(rows_.begin(), rows_.end(), index,
                                         [&](const Node *row, unsigned long i) {
                                             return static_cast<unsigned long>(index_of(row)) < i;
                                         });
        return at == rows_.end() ? nullptr : *at;
    }
    // Forgets the rows; their owner frees them.
    void clear() noexcept { rows_.clear(); }

  private:
    std::vector<Node *> rows_;
};
