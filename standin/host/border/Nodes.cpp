// SPDX-License-Identifier: MIT
// Copyright (c) 2026 the xapel2_ext_sc authors
// The operations of nodes and node maps.

#include "standin/host/nodes/Nodes.h"

namespace XAPEL2 {

void Node::SetInt(long long iValue) {
    StandIn::setInt(*this, iValue);
}

long long Node::GetInt() {
    return StandIn::getInt(*this);
}

long long Node::GetIntMin() {
    return StandIn::getIntMin(*this);
}

long long Node::GetIntMax() {
    return StandIn::getIntMax(*this);
}

void Node::SetString(String strValue) {
    StandIn::setString(*this, strValue.get());
}

void Node::SetValue(String strValue) {
    StandIn::setValue(*this, strValue.get());
}

String Node::GetString() {
    return String(StandIn::getString(*this).c_str());
}

bool NodeMap::GetNodePresent(String strName) {
    return StandIn::hasNode(*this, strName.get());
}

Node* NodeMap::GetNode(String strName) {
    return &StandIn::nodeOf(*this, strName.get());
}

}  // namespace XAPEL2
