// A file of its own, compiled without knowing who calls, and an allocator that is found at run time: else the
// compiler would see through the interfaces.

#include "values/ContractPool.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "TnRobotKernel/detail/RingQueue.h"

namespace bench {

namespace {

class Value : public ContractValue {
public:
    void AddRef() override { m_nCount.fetch_add(1); }
    void Release() override {
        ContractPool* pParent = m_pParent;
        if (m_nCount.fetch_sub(1) == 2) {
            pParent->Recover(this);
        }
    }
    void ClearResource() override {
        m_nType = 0;
        m_nLength = 0;
        std::memset(m_bytes, 0, sizeof(m_bytes));
    }
    void SetParent(ContractPool* pParent) override { m_pParent = pParent; }
    void Reset(const ContractParam& param) {
        m_nType = param.m_nType;
        m_nLength = static_cast<unsigned int>(param.m_nLength);
        std::memcpy(m_bytes, param.m_pBytes, param.m_nLength);
    }

private:
    std::atomic<int> m_nCount{1};
    int m_nType = 0;
    ContractPool* m_pParent = nullptr;
    unsigned int m_nLength = 0;
    unsigned char m_bytes[24] = {};
    [[maybe_unused]] unsigned char m_rest[48] = {};  // the text form, the view and what manages longer contents
};

// Another class than the one in use, so that no call of the interface has a single target.
class EmptyValue : public Value {
public:
    void AddRef() override {}
    void Release() override {}
    void ClearResource() override {}
    void SetParent(ContractPool* /*pParent*/) override {}
};

struct Alloc {
    virtual ~Alloc() = default;
    virtual std::unique_ptr<ContractValue> AllocElement() { return std::make_unique<Value>(); }
    virtual void SetElementParam(ContractValue* pValue, const ContractParam& param) {
        static_cast<Value*>(pValue)->Reset(param);
    }
};

struct EmptyAlloc : Alloc {
    std::unique_ptr<ContractValue> AllocElement() override { return std::make_unique<EmptyValue>(); }
    void SetElementParam(ContractValue* /*pValue*/, const ContractParam& /*param*/) override {}
};

class Pool : public ContractPool {
public:
    explicit Pool(Alloc& alloc) : m_alloc(alloc) {}

    ContractValue* Query(const ContractParam& param) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_free.Empty()) {
            m_all.push_back(m_alloc.AllocElement());
            m_free.Reserve(m_all.size());
            m_free.PushBack(m_all.back().get());
        }
        ContractValue* pValue = m_free.Front();
        m_alloc.SetElementParam(pValue, param);
        m_free.PopFront();
        pValue->SetParent(this);
        pValue->AddRef();
        return pValue;
    }

    void Recover(ContractValue* pValue) override {
        pValue->ClearResource();
        pValue->SetParent(nullptr);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_free.PushBack(pValue);
    }

private:
    Alloc& m_alloc;
    std::mutex m_mutex;
    std::vector<std::unique_ptr<ContractValue>> m_all;
    tn::detail::RingQueue<ContractValue*> m_free;
};

}  // namespace

ContractPool* MakeContractPool() {
    static Alloc s_alloc;
    static EmptyAlloc s_empty;
    bool bEmpty = false;
    benchmark::DoNotOptimize(bEmpty);
    static Pool s_pool(bEmpty ? s_empty : s_alloc);
    return &s_pool;
}

}  // namespace bench
