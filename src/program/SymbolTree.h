#pragma once

// A centred interval tree for point queries over function and file ranges. Small nodes are not split:
// a sorted bucket scanned linearly is faster than more levels for the sizes that programs have.

#include "app/core/Types.h"

#include <algorithm>
#include <memory>
#include <vector>

template <typename VALUE>
class CIntervalTree {
public:
    struct INTERVAL {
        U64 Start;
        U64 Stop; ///< inclusive
        VALUE Value;
    };

    /// Builds the tree over Intervals (their order is kept among equal starts).
    void Build(std::vector<INTERVAL> Intervals, int Depth = 16, size_t MinBucket = 64,
               size_t MaxBucket = 512) {
        m_Root.reset();
        if (Intervals.empty()) {
            return;
        }
        std::stable_sort(Intervals.begin(), Intervals.end(),
                         [](const INTERVAL& A, const INTERVAL& B) { return A.Start < B.Start; });
        m_Root = Make(std::move(Intervals), Depth, MinBucket, MaxBucket);
    }
    /// Every interval that holds Point, in the order of the nodes from the root down.
    void Query(U64 Point, std::vector<VALUE>& Out) const {
        for (const NODE* N = m_Root.get(); N;) {
            for (const INTERVAL& I : N->Here) {
                if (I.Start > Point) {
                    break; // sorted by start
                }
                if (Point <= I.Stop) {
                    Out.push_back(I.Value);
                }
            }
            if (Point < N->Centre) {
                N = N->Left.get();
            } else if (Point > N->Centre) {
                N = N->Right.get();
            } else {
                break;
            }
        }
    }
    bool IsEmpty() const { return !m_Root; }

private:
    struct NODE {
        std::vector<INTERVAL> Here;
        std::unique_ptr<NODE> Left, Right;
        U64 Centre = 0;
    };

    static std::unique_ptr<NODE> Make(std::vector<INTERVAL> L, int Depth, size_t MinBucket,
                                      size_t MaxBucket) {
        auto N = std::make_unique<NODE>();
        --Depth;
        if (Depth <= 0 || (L.size() < MinBucket && L.size() < MaxBucket)) {
            N->Here = std::move(L);
            N->Centre = ~0ull; // a leaf: every point ends here
            return N;
        }
        N->Centre = L[L.size() / 2].Start;
        std::vector<INTERVAL> Left, Right;
        for (INTERVAL& I : L) {
            if (I.Stop < N->Centre) {
                Left.push_back(std::move(I));
            } else if (I.Start > N->Centre) {
                Right.push_back(std::move(I));
            } else {
                N->Here.push_back(std::move(I));
            }
        }
        if (!Left.empty()) {
            N->Left = Make(std::move(Left), Depth - 1, MinBucket, MaxBucket);
        }
        if (!Right.empty()) {
            N->Right = Make(std::move(Right), Depth - 1, MinBucket, MaxBucket);
        }
        return N;
    }

    std::unique_ptr<NODE> m_Root;
};
