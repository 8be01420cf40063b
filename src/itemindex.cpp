#include "itemindex.h"

// A group that was marked stays to be painted: a layout marks the whole Page, but not what is told to paint itself.
void ItemIndex::Build(List<Element> *lpChildren) {
    _groups.clear();
    int nInGroup = kGroupSize;
    for (List<Element> *lpNode = lpChildren; lpNode; lpNode = lpNode->lpNext, ++nInGroup) {
        Element *lpChild = lpNode->lpData;
        if (nInGroup == kGroupSize) {
            _groups.push_back({Extent(), lpNode, false});
            nInGroup = 0;
        }
        Group &group = _groups.back();
        lpChild->AddExtent(&group.extent);
        group.bDirty |= lpChild->_bDirty != 0;
        lpChild->_nGroup = static_cast<uint32_t>(_groups.size() - 1);
    }
}
