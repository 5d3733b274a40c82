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

const CNodeMapShell::Slot& slotOf(const Node& rNode) {
    return *static_cast<const CNodeMapShell::Slot*>(HostAccess::impl(rNode));
}

// One access to a node: who it is, for messages.
struct Access {
    Access(const Node& rNode, const char* pOperation)
        : rSlot(slotOf(rNode)), pName(pOperation), pTable(rSlot.pTable.lock()) {
        if (pTable == nullptr) {
            raise<Exceptions::Xapel_ObjectInvalidException>(__FILE__, __LINE__, pName,
                                                            message("the node's owner is gone"));
        }
    }

    const NodeSpec& spec() const { return (*pTable)[rSlot.iNode]; }

    std::string message(const char* pWhat) const { return rSlot.strName + ": " + pWhat; }

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

    const CNodeMapShell::Slot& rSlot;
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

int64_t readInt(const Access& rAccess, std::function<int64_t()> NodeSpec::*pProperty) {
    rAccess.expect(rAccess.spec().eKind == eIntNode);
    return rAccess.ask(rAccess.spec().*pProperty);
}

std::string textOf(const NodeSpec& rSpec) {
    return rSpec.fnGetText ? rSpec.fnGetText() : std::to_string(rSpec.fnGetInt());
}

}  // namespace

const std::string& nameOf(const Node& rNode) {
    return slotOf(rNode).strName;
}

void setInt(const Node& rNode, int64_t iValue) {
    const Access access(rNode, "SetInt");
    access.expect(access.spec().eKind == eIntNode);
    access.check(access.ask([&] { return setIntOf(access.spec(), iValue); }));
}

int64_t getInt(const Node& rNode) {
    return readInt({rNode, "GetInt"}, &NodeSpec::fnGetInt);
}

int64_t getIntMin(const Node& rNode) {
    return readInt({rNode, "GetIntMin"}, &NodeSpec::fnMin);
}

int64_t getIntMax(const Node& rNode) {
    return readInt({rNode, "GetIntMax"}, &NodeSpec::fnMax);
}

void setString(const Node& rNode, const char* pValue) {
    const Access access(rNode, "SetString");
    access.expect(access.spec().eKind == eTextNode);
    access.check(access.ask([&] { return setTextOf(access.spec(), pValue); }));
}

void setValue(const Node& rNode, const char* pValue) {
    const Access access(rNode, "SetValue");
    const NodeSpec& rSpec = access.spec();
    const bool bNumber = rSpec.eKind == eIntNode && !rSpec.fnSetText;
    access.check(access.ask([&] { return bNumber ? setIntFromText(rSpec, pValue) : setTextOf(rSpec, pValue); }));
}

std::string getString(const Node& rNode) {
    const Access access(rNode, "GetString");
    return access.ask([&] { return textOf(access.spec()); });
}

namespace {

const CNodeMapShell& shellOf(const NodeMap& rMap) {
    return *static_cast<const CNodeMapShell*>(HostAccess::impl(rMap));
}

NodeInfo infoOf(const NodeSpec& rSpec) {
    NodeInfo info;
    info.strName = rSpec.strName;
    info.bWritable = rSpec.fnSetInt != nullptr || rSpec.fnSetText != nullptr;
    info.bNumber = rSpec.eKind == eIntNode;
    try {
        info.strValue = textOf(rSpec);
        if (info.bNumber) {
            info.iMin = rSpec.fnMin();
            info.iMax = rSpec.fnMax();
        }
        if (rSpec.fnEntries) {
            info.vecEntries = rSpec.fnEntries();
        }
    } catch (const std::runtime_error& rError) {
        info.strValue.clear();
        info.strError = rError.what();
    }
    return info;
}

}  // namespace

std::vector<NodeInfo> describe(const NodeMap& rMap) {
    std::vector<NodeInfo> vecInfos;
    if (const std::shared_ptr<const NodeTable> pTable = shellOf(rMap).table()) {
        for (const NodeSpec& rSpec : *pTable) {
            vecInfos.push_back(infoOf(rSpec));
        }
    }
    return vecInfos;
}

bool hasNode(const NodeMap& rMap, const char* pName) {
    return shellOf(rMap).find(pName) != nullptr;
}

Node& nodeOf(const NodeMap& rMap, const char* pName) {
    const CNodeMapShell& rShell = shellOf(rMap);
    if (!rShell.isAlive()) {
        raise<Exceptions::Xapel_ObjectInvalidException>(__FILE__, __LINE__, "GetNode",
                                                        "the owner of the nodes is gone");
    }
    Node* const pNode = rShell.find(pName);
    if (pNode == nullptr) {
        raiseNoNode("GetNode", pName);
    }
    return *pNode;
}

void raiseNoNode(const char* pFunction, const char* pName) {
    raise<Exceptions::Xapel_NotAvailableException>(__FILE__, __LINE__, pFunction, std::string("no node ") + pName);
}

}  // namespace StandIn
}  // namespace XAPEL2
