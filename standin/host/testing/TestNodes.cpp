// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The operations of nodes and node maps, with faults, records and the observer.

#include "standin/host/nodes/Nodes.h"
#include "standin/host/objects/Throw.h"
#include "standin/host/testing/Faults.h"
#include "standin/host/testing/Observation.h"

namespace XAPEL2 {

namespace {

using namespace StandIn;

// One access to a node: who it is, for faults and observers.
struct Access {
    void observe(const std::string& strValue) const {
        if (nodesAreObserved()) {
            observeNode({nameOf(rNode), pName, strValue});
        }
    }

    void admit() const {
        if (faultHits(eOp, nameOf(rNode).c_str())) {
            raise<Exceptions::Xapel_AccessDeniedException>(__FILE__, __LINE__, pName, nameOf(rNode) + ": injected");
        }
    }

    const Node& rNode;
    Control::eHostOp eOp;
    const char* pName;
};

// A write is observed before it takes effect.
void write(const Access& rAccess, void (*pfnWrite)(const Node&, const char*), const char* pValue) {
    rAccess.observe(pValue);
    rAccess.admit();
    pfnWrite(rAccess.rNode, pValue);
}

std::string textOf(const std::string& strValue) {
    return strValue;
}
std::string textOf(int64_t iValue) {
    return std::to_string(iValue);
}

// A read is observed with its value; a refused one without.
template <class tValue>
tValue read(const Access& rAccess, tValue (*pfnRead)(const Node&)) {
    tValue value{};
    try {
        rAccess.admit();
        value = pfnRead(rAccess.rNode);
    } catch (...) {
        rAccess.observe("");
        throw;
    }
    if (nodesAreObserved()) {
        rAccess.observe(textOf(value));
    }
    return value;
}

}  // namespace

void Node::SetInt(long long iValue) {
    const Access access{*this, Control::eNodeSetInt, "SetInt"};
    if (nodesAreObserved()) {
        access.observe(std::to_string(iValue));
    }
    access.admit();
    setInt(*this, iValue);
}

long long Node::GetInt() {
    return read({*this, Control::eNodeGetInt, "GetInt"}, &getInt);
}

long long Node::GetIntMin() {
    return read({*this, Control::eNodeGetIntMin, "GetIntMin"}, &getIntMin);
}

long long Node::GetIntMax() {
    return read({*this, Control::eNodeGetIntMax, "GetIntMax"}, &getIntMax);
}

void Node::SetString(String strValue) {
    write({*this, Control::eNodeSetString, "SetString"}, &setString, strValue.get());
}

void Node::SetValue(String strValue) {
    write({*this, Control::eNodeSetValue, "SetValue"}, &setValue, strValue.get());
}

String Node::GetString() {
    return String(read({*this, Control::eNodeGetString, "GetString"}, &getString).c_str());
}

bool NodeMap::GetNodePresent(String strName) {
    return !faultHits(Control::eGetNodePresent, strName.get()) && hasNode(*this, strName.get());
}

Node* NodeMap::GetNode(String strName) {
    const bool bRefused = faultHits(Control::eGetNode, strName.get());
    Node& rNode = nodeOf(*this, strName.get());
    if (bRefused) {
        raiseNoNode("GetNode", strName.get());
    }
    return &rNode;
}

}  // namespace XAPEL2
