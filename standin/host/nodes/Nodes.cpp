// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// Node maps and the operations of a node.

#include "standin/host/nodes/Nodes.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "standin/host/objects/HostAccess.h"
#include "standin/host/objects/Throw.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/Observation.h"

namespace XAPEL2 {

namespace StandIn {

CNodeMapShell::CNodeMapShell(const std::shared_ptr<const NodeTable>& pTable) : m_pTable(pTable) {
    m_vecSlots.reserve(pTable->size());  // a node holds the address of its slot
    for (std::size_t i = 0; i < pTable->size(); ++i) {
        m_vecSlots.push_back({pTable, i, (*pTable)[i].strName, nullptr});
        m_vecSlots.back().pNode.reset(HostAccess::newNode(&m_vecSlots.back()));
    }
    m_pMap.reset(HostAccess::newNodeMap(this));
}

CNodeMapShell::~CNodeMapShell() = default;

Node* CNodeMapShell::find(const char* pName) const {
    for (const Slot& rSlot : m_vecSlots) {
        if (rSlot.strName == pName && isAlive()) {
            return rSlot.pNode.get();
        }
    }
    return nullptr;
}

void CNodeMapShell::keep(std::unique_ptr<CNodeMapShell> pShell) {
    static std::mutex* const pMutex = new std::mutex;
    static std::vector<std::unique_ptr<CNodeMapShell>>* const pKept = new std::vector<std::unique_ptr<CNodeMapShell>>;
    std::lock_guard<std::mutex> lock(*pMutex);
    pKept->push_back(std::move(pShell));
}

namespace {

// One access to a node: who it is, for faults, observers and messages.
struct Access {
    Access(const Node& rNode, Control::eHostOp eOperation, const char* pOperation)
        : rSlot(*static_cast<const CNodeMapShell::Slot*>(HostAccess::impl(rNode))),
          eOp(eOperation),
          pName(pOperation),
          pTable(rSlot.pTable.lock()) {}

    const NodeSpec& spec() const { return (*pTable)[rSlot.iNode]; }

    std::string message(const char* pWhat) const { return rSlot.strName + ": " + pWhat; }

    // Refusals before the value is looked at.
    void admit() const {
        if (faultHits(eOp, rSlot.strName.c_str())) {
            raise<Exceptions::Xapel_AccessDeniedException>(__FILE__, __LINE__, pName, message("injected"));
        }
        if (pTable == nullptr) {
            raise<Exceptions::Xapel_ObjectInvalidException>(__FILE__, __LINE__, pName,
                                                            message("the node's owner is gone"));
        }
    }

    void expect(bool bRightType) const {
        if (!bRightType) {
            raise<Exceptions::Xapel_InvalidParameterException>(__FILE__, __LINE__, pName, message("wrong node type"));
        }
    }

    void check(eNodeResult eResult) const {
        switch (eResult) {
            case eNodeInvalid:
                raise<Exceptions::Xapel_InvalidParameterException>(__FILE__, __LINE__, pName,
                                                                   message("the value is not allowed"));
            case eNodeDenied:
                raise<Exceptions::Xapel_AccessDeniedException>(__FILE__, __LINE__, pName, message("not writable now"));
            case eNodeDone:
                break;
        }
    }

    // Runs a function of the owner. Its refusals become the host's.
    template <class tCall>
    auto ask(tCall fnCall) const {
        try {
            return fnCall();
        } catch (const std::invalid_argument& rError) {
            raise<Exceptions::Xapel_InvalidParameterException>(__FILE__, __LINE__, pName, message(rError.what()));
        } catch (const std::runtime_error& rError) {
            raise<Exceptions::Xapel_ErrorException>(__FILE__, __LINE__, pName, message(rError.what()));
        }
    }

    void observe(const std::string& strValue) const { observeNode({rSlot.strName, pName, strValue}); }

    const CNodeMapShell::Slot& rSlot;
    const Control::eHostOp eOp;
    const char* const pName;
    const std::shared_ptr<const NodeTable> pTable;  // keeps the owner for the length of the access
};

eNodeResult setIntOf(const NodeSpec& rSpec, int64_t iValue) {
    return rSpec.fnSetInt ? rSpec.fnSetInt(iValue) : eNodeDenied;
}

eNodeResult setTextOf(const NodeSpec& rSpec, const char* pValue) {
    return rSpec.fnSetText ? rSpec.fnSetText(pValue) : eNodeDenied;
}

eNodeResult setIntFromText(const NodeSpec& rSpec, const char* pText) {
    char* pEnd = nullptr;
    errno = 0;
    const long long iValue = std::strtoll(pText, &pEnd, 0);
    if (pEnd == pText || *pEnd != '\0' || errno == ERANGE) {
        return eNodeInvalid;
    }
    return setIntOf(rSpec, iValue);
}

// Reads an integer property, observed with its value; a refused read is observed without one.
int64_t readInt(const Access& rAccess, std::function<int64_t()> NodeSpec::*pProperty) {
    int64_t iValue = 0;
    try {
        rAccess.admit();
        rAccess.expect(rAccess.spec().eKind == eIntNode);
        iValue = rAccess.ask(rAccess.spec().*pProperty);
    } catch (...) {
        if (nodesAreObserved()) {
            rAccess.observe("");
        }
        throw;
    }
    if (nodesAreObserved()) {
        rAccess.observe(std::to_string(iValue));
    }
    return iValue;
}

std::string textOf(const NodeSpec& rSpec) {
    return rSpec.fnGetText ? rSpec.fnGetText() : std::to_string(rSpec.fnGetInt());
}

}  // namespace

}  // namespace StandIn

using namespace StandIn;

void Node::SetInt(long long iValue) {
    const Access access(*this, Control::eNodeSetInt, "SetInt");
    if (nodesAreObserved()) {
        access.observe(std::to_string(iValue));
    }
    access.admit();
    access.expect(access.spec().eKind == eIntNode);
    access.check(access.ask([&] { return setIntOf(access.spec(), iValue); }));
}

long long Node::GetInt() {
    return readInt({*this, Control::eNodeGetInt, "GetInt"}, &NodeSpec::fnGetInt);
}

long long Node::GetIntMin() {
    return readInt({*this, Control::eNodeGetIntMin, "GetIntMin"}, &NodeSpec::fnMin);
}

long long Node::GetIntMax() {
    return readInt({*this, Control::eNodeGetIntMax, "GetIntMax"}, &NodeSpec::fnMax);
}

void Node::SetString(String strValue) {
    const Access access(*this, Control::eNodeSetString, "SetString");
    if (nodesAreObserved()) {
        access.observe(strValue.get());
    }
    access.admit();
    access.expect(access.spec().eKind == eTextNode);
    access.check(access.ask([&] { return setTextOf(access.spec(), strValue.get()); }));
}

void Node::SetValue(String strValue) {
    const Access access(*this, Control::eNodeSetValue, "SetValue");
    if (nodesAreObserved()) {
        access.observe(strValue.get());
    }
    access.admit();
    const NodeSpec& rSpec = access.spec();
    const bool bNumber = rSpec.eKind == eIntNode && !rSpec.fnSetText;
    access.check(
        access.ask([&] { return bNumber ? setIntFromText(rSpec, strValue.get()) : setTextOf(rSpec, strValue.get()); }));
}

String Node::GetString() {
    const Access access(*this, Control::eNodeGetString, "GetString");
    std::string strValue;
    try {
        access.admit();
        strValue = access.ask([&] { return textOf(access.spec()); });
    } catch (...) {
        if (nodesAreObserved()) {
            access.observe("");
        }
        throw;
    }
    if (nodesAreObserved()) {
        access.observe(strValue);
    }
    return String(strValue.c_str());
}

bool NodeMap::GetNodePresent(String strName) {
    return !faultHits(Control::eGetNodePresent, strName.get()) &&
           static_cast<const CNodeMapShell*>(m_pImpl)->find(strName.get()) != nullptr;
}

Node* NodeMap::GetNode(String strName) {
    const bool bRefused = faultHits(Control::eGetNode, strName.get());
    const auto& rShell = *static_cast<const CNodeMapShell*>(m_pImpl);
    if (!rShell.isAlive()) {
        XAPEL2_RAISE(ObjectInvalid, "the owner of the nodes is gone");
    }
    Node* pNode = bRefused ? nullptr : rShell.find(strName.get());
    if (pNode == nullptr) {
        XAPEL2_RAISE(NotAvailable, std::string("no node ") + strName.get());
    }
    return pNode;
}

}  // namespace XAPEL2
