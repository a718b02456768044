// What the message table needs of a settings document: a current section and labels read
// relative to it. The settings document implements it; the ground floor knows nothing more.
#pragma once

#include <string>

class iclsLabelSource {
public:
    virtual ~iclsLabelSource() = default;
    virtual bool SetCurNode(const std::string& sNodePath) = 0;
    virtual std::string GetLabelUseCurNode(const std::string& lblCap, std::string* sIndex = nullptr,
                                           const std::string& sIndAttr = "") = 0;
};
