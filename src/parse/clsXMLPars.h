// Reads the export data XML into the export model of the call.
#pragma once

#include <memory>
#include <pugixml.hpp>
#include <string>

#include "support/clsExportContext.h"

class clsXMLPars {
public:
    explicit clsXMLPars(clsExportContext& ctx);

    // Loads the data file into a new document returned through document; logs a parse error.
    bool LoadCurrentXML(std::unique_ptr<pugi::xml_document>& document, const std::string& path);
    // Recognises the top level and walks it, filling the model and setting ObjCount.
    bool MainXStruct(const pugi::xml_document& document);

private:
    clsExportContext& ctx_;
};
