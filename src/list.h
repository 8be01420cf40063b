// The one collection: a doubly linked list of pointers.
//
// A list is nothing but a pointer to its head node, null when it is empty. Nodes are only ever added at the
// head, so that the walk along lpNext goes from the newest entry to the oldest; document order is the walk
// from List_Tail along lpPrev. A node owns neither its neighbours nor its data: each list says who owns what
// is in it.
#pragma once

template <class T>
struct List {
    T *lpData;
    List *lpNext;  // the entry that was added before this one
    List *lpPrev;  // the entry that was added after this one
};

// Makes a node the head.
template <class T>
List<T> *List_Link(List<T> *&lpHead, List<T> *lpNode) {
    lpNode->lpNext = lpHead;
    lpNode->lpPrev = nullptr;
    if (lpHead)
        lpHead->lpPrev = lpNode;
    lpHead = lpNode;
    return lpNode;
}

template <class T>
List<T> *List_Prepend(List<T> *&lpHead, T *lpData) {
    return List_Link(lpHead, new List<T>{lpData, nullptr, nullptr});
}

// The oldest node, or null.
template <class T>
List<T> *List_Tail(List<T> *lpHead) {
    if (lpHead) {
        while (lpHead->lpNext)
            lpHead = lpHead->lpNext;
    }
    return lpHead;
}

// Takes the head off and returns its data; the list must not be empty.
template <class T>
T *List_TakeHead(List<T> *&lpHead) {
    List<T> *lpNode = lpHead;
    T *lpData = lpNode->lpData;
    lpHead = lpNode->lpNext;
    if (lpHead)
        lpHead->lpPrev = nullptr;
    delete lpNode;
    return lpData;
}

// Frees the nodes of a list that does not own its data.
template <class T>
void List_FreeNodes(List<T> *&lpHead) {
    while (lpHead)
        List_TakeHead(lpHead);
}

// Destroys the data of a list whose nodes belong to an Arena, the newest first.
template <class T>
void List_DestroyData(List<T> *&lpHead) {
    for (; lpHead; lpHead = lpHead->lpNext)
        delete lpHead->lpData;
}

// Empties a list that owns its data.
template <class T>
void List_Destroy(List<T> *&lpHead) {
    while (lpHead)
        delete List_TakeHead(lpHead);
}

// Empties a list that owns strings, or other arrays.
template <class T>
void List_DestroyArrays(List<T> *&lpHead) {
    while (lpHead)
        delete[] List_TakeHead(lpHead);
}
