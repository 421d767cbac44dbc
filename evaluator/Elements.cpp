#include "evaluator/Kalvos.h"

void Kalvos::RemoveElement(unsigned int pos, unsigned int count, StElement* list,
                           unsigned int& listCount) const {
    if (listCount <= pos) return;
    for (unsigned int i = pos; i + count < listCount; ++i) list[i] = list[i + count];
    listCount = listCount > count ? listCount - count : 0;
}
