// Forward declarations of the XML node handle, for headers that only return nodes.
#pragma once

class Cmn_XMLNode;
template <class T>
class Cmn_AliasedRefCountPtr;
using Cmn_XMLNodePtr = Cmn_AliasedRefCountPtr<Cmn_XMLNode>;
