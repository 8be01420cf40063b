#include "itemindex.h"

#include <algorithm>
#include <new>
#include <utility>

void ItemIndex::Add(List<Element> *lpNode) {
    _bBuilt = false;
    if (_bGivenUp || ((!_nGroups || _nInNewest == kGroupSize) && !AddGroup()))
        return;
    lpNode->lpData->_nGroup = _nGroups - 1;
    _lpGroups[_nGroups - 1].lpNewest = lpNode;
    ++_nInNewest;
}

// What is marked stays marked, wherever it comes to be.
void ItemIndex::Begin() {
    _bBuilt = false;
    for (uint32_t i = 0; i < _nGroups; ++i)
        _lpGroups[i].extent = Extent();
}

// Groups without some of the children are of no use.
bool ItemIndex::AddGroup() {
    if (_nGroups == _nRoom) {
        const uint32_t nRoom = std::max(2 * _nRoom, 8u);
        std::unique_ptr<Group[]> lpGroups(new (std::nothrow) Group[nRoom]);
        if (!lpGroups) {
            _bGivenUp = true;
            _nGroups = 0;
            return false;
        }
        std::copy_n(_lpGroups.get(), _nGroups, lpGroups.get());
        _lpGroups = std::move(lpGroups);
        _nRoom = nRoom;
    }
    ++_nGroups;
    _nInNewest = 0;
    return true;
}
