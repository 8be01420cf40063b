// ItemIndex: where the children of a Page are, in groups of neighbours, so that painting a corner of a long Page, or
// finding what is under the pointer, asks a few children instead of all.
//
// The groups grow with the list of children; where they are, each layout tells anew, and that holds until the next child
// or the next layout. A Page without all that, or short of memory, asks all.
#pragma once

#include <cstdint>
#include <memory>

#include "element.h"

class ItemIndex {
  public:
    // The node of a new child, which is the head of the list.
    void Add(List<Element> *lpNode);
    // A layout begins: nothing has a place.
    void Begin();
    // lpChild has its place, for this layout.
    void Place(Element *lpChild) {
        if (lpChild->_nGroup < _nGroups)
            lpChild->AddExtent(&_lpGroups[lpChild->_nGroup].extent);
    }
    // Every child that can be seen or hit has its place.
    void End() { _bBuilt = _nGroups != 0; }
    bool IsBuilt() const { return _bBuilt; }

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
        for (uint32_t i = _nGroups; i-- > 0;) {
            Group &group = _lpGroups[i];
            if (group.bDirty || group.extent.Meets(area)) {
                group.bDirty = false;
                VisitGroup(i, visit);
            }
        }
    }

    // The same for the groups that reach over a point.
    template <class Visit>
    void VisitAt(int x, int y, Visit visit) const {
        for (uint32_t i = _nGroups; i-- > 0;) {
            if (_lpGroups[i].extent.Meets({x, y, x, y}))
                VisitGroup(i, visit);
        }
    }

  private:
    static constexpr uint32_t kGroupSize = 64;

    struct Group {
        Extent extent;
        List<Element> *lpNewest = nullptr;
        bool bDirty = false;
    };

    bool AddGroup();

    template <class Visit>
    void VisitGroup(uint32_t nGroup, Visit visit) const {
        List<Element> *lpNode = _lpGroups[nGroup].lpNewest;
        for (uint32_t n = nGroup + 1 < _nGroups ? kGroupSize : _nInNewest; n > 0;
             --n, lpNode = lpNode->lpNext)
            visit(lpNode);
    }

    // The oldest first; all are full but the last, which has so many children.
    std::unique_ptr<Group[]> _lpGroups;
    uint32_t _nGroups = 0;
    uint32_t _nRoom = 0;
    uint32_t _nInNewest = 0;
    bool _bBuilt = false;
    bool _bGivenUp = false;
};
