// A pointer, a size, and a reference to whatever keeps the memory alive.

#include "memory/TnRobotProtocolMemBlock.h"

#include "core/TnCreateInstance.h"

int CTnRobotProtocolMemBlock::CreateInstance(ITnRobotMemoryBlock* pParent, unsigned char* pData, unsigned int nSize,
                                             ITnRobotMemoryBlock** ppBlock) {
    return tnrobot::FinishInstance(new CTnRobotProtocolMemBlock, ppBlock, &CTnRobotProtocolMemBlock::_Init, pParent,
                                   pData, nSize);
}

bool CTnRobotProtocolMemBlock::_Init(ITnRobotMemoryBlock* pParent, unsigned char* pData, unsigned int nSize) {
    m_parentBlock = tnrobot::Ref<ITnRobotMemoryBlock>::Share(pParent);
    m_pData = pData;
    m_nSize = nSize;
    return true;
}

unsigned char* CTnRobotProtocolMemBlock::QueryMemory(unsigned int& nSize) {
    nSize = m_nSize;
    return m_pData;
}

std::chrono::system_clock::time_point CTnRobotProtocolMemBlock::GetRecoveryTime() const {
    return std::chrono::system_clock::now();
}

void CTnRobotProtocolMemBlock::ClearResource() {
    m_parentBlock.Reset();
}

int TnCreateRobotCustomMemBlock(ITnRobotMemoryBlock* pParent, unsigned char* pData, unsigned int nSize,
                                ITnRobotMemoryBlock** ppBlock) {
    return CTnRobotProtocolMemBlock::CreateInstance(pParent, pData, nSize, ppBlock);
}
