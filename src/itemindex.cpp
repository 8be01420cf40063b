#include "itemindex.h"

#include <new>

// What was to be painted stays to be painted, though it may now be in another group.
void ItemIndex::Build(List<Element> *lpChildren, uint32_t nChildren) {
    const uint32_t nGroups = (nChildren + kGroupSize - 1) / kGroupSize;
    if (nGroups > _nRoom) {
        _lpGroups.reset(new (std::nothrow) Group[nGroups]);
        _nRoom = _lpGroups ? nGroups : 0;
    }
    _nGroups = _lpGroups ? nGroups : 0;
    List<Element> *lpNode = lpChildren;
    for (uint32_t i = 0; i < _nGroups; ++i) {
        Group &group = _lpGroups[i] = {Extent(), lpNode, false};
        for (uint32_t n = 0; lpNode && n < kGroupSize; ++n, lpNode = lpNode->lpNext) {
            Element *lpChild = lpNode->lpData;
            lpChild->_nGroup = i;
            lpChild->AddExtent(&group.extent);
            group.bDirty |= lpChild->_bDirty != 0;
        }
    }
}
