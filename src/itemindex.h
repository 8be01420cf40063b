// ItemIndex: where the children of a Page are, in groups of neighbours, so that painting a corner of a long Page, or
// finding what is under the pointer, asks a few children instead of all.
//
// It is built at the end of a layout and holds until the next. A Page without one asks all.
#pragma once

#include <cstdint>
#include <vector>

#include "element.h"

class ItemIndex {
  public:
    // lpChildren = the head of the list.
    void Build(List<Element> *lpChildren);
    void Drop() { _groups.clear(); }
    bool IsBuilt() const { return !_groups.empty(); }

    // Its group will be visited by the next VisitDirty. A child that is in no group is none of this Page's.
    void MarkDirty(const Element *lpChild) {
        if (lpChild->_nGroup < _groups.size())
            _groups[lpChild->_nGroup].bDirty = true;
    }

    // Calls visit(node) for the children of all groups that reach into rc, edges included, or that were marked, from the
    // newest child to the oldest. Takes the marks away.
    template <class Visit>
    void VisitDirty(const Rect &rc, Visit visit) {
        const Extent area{rc.x, rc.y, rc.x + rc.w, rc.y + rc.h};
        for (Group &group : _groups) {
            if (group.bDirty || group.extent.Meets(area)) {
                group.bDirty = false;
                VisitGroup(group, visit);
            }
        }
    }

    // The same for the groups that reach over a point.
    template <class Visit>
    void VisitAt(int x, int y, Visit visit) const {
        for (const Group &group : _groups) {
            if (group.extent.Meets({x, y, x, y}))
                VisitGroup(group, visit);
        }
    }

  private:
    static constexpr int kGroupSize = 64;

    struct Group {
        Extent extent;
        List<Element> *lpNewest;
        bool bDirty;
    };

    template <class Visit>
    static void VisitGroup(const Group &group, Visit visit) {
        List<Element> *lpNode = group.lpNewest;
        for (int i = 0; lpNode && i < kGroupSize; ++i, lpNode = lpNode->lpNext)
            visit(lpNode);
    }

    std::vector<Group> _groups;
};
