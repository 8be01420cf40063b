// ItemIndex: where the children of a Page are, in groups of neighbours, so that painting a corner of a long Page, or
// finding what is under the pointer, asks a few children instead of all.
//
// It is built at the end of a layout and holds until the next. A Page without one, new or short of memory, asks all.
#pragma once

#include <cstdint>
#include <memory>

#include "element.h"

class ItemIndex {
  public:
    // lpChildren = the head of a list of so many.
    void Build(List<Element> *lpChildren, uint32_t nChildren);
    void Drop() { _nGroups = 0; }
    bool IsBuilt() const { return _nGroups != 0; }

    // Its group will be visited by the next VisitDirty. A child that is in no group is none of this Page's.
    void MarkDirty(const Element *lpChild) {
        if (lpChild->_nGroup < _nGroups)
            _lpGroups[lpChild->_nGroup].bDirty = true;
    }

    // Calls visit(node) for the children of all groups that reach into rc, edges included, or that were marked, from the
    // newest child to the oldest. Takes the marks away.
    template <class Visit>
    void VisitDirty(const Rect &rc, Visit visit) {
        const Extent area{rc.x, rc.y, rc.x + rc.w, rc.y + rc.h};
        for (uint32_t i = 0; i < _nGroups; ++i) {
            Group &group = _lpGroups[i];
            if (group.bDirty || group.extent.Meets(area)) {
                group.bDirty = false;
                VisitGroup(group, visit);
            }
        }
    }

    // The same for the groups that reach over a point.
    template <class Visit>
    void VisitAt(int x, int y, Visit visit) const {
        for (uint32_t i = 0; i < _nGroups; ++i) {
            if (_lpGroups[i].extent.Meets({x, y, x, y}))
                VisitGroup(_lpGroups[i], visit);
        }
    }

  private:
    static constexpr uint32_t kGroupSize = 64;

    struct Group {
        Extent extent;
        List<Element> *lpNewest = nullptr;
        bool bDirty = false;
    };

    template <class Visit>
    static void VisitGroup(const Group &group, Visit visit) {
        List<Element> *lpNode = group.lpNewest;
        for (uint32_t i = 0; lpNode && i < kGroupSize; ++i, lpNode = lpNode->lpNext)
            visit(lpNode);
    }

    std::unique_ptr<Group[]> _lpGroups;
    uint32_t _nGroups = 0;
    uint32_t _nRoom = 0;
};
