// The caption and label tables built from the settings and the setup string before parsing.
#pragma once

#include <array>
#include <string>

#include "support/clsVarTable.h"

struct clsLabelTables {
    clsVarTable CaptionTable;        // (0 label, 1 setup value) per caption entry
    clsVarTable AdditionalTagTable;  // (0 FIELD, 1 caption, 2 OWNER) per additional attribute
    clsVarTable ItemAttrLabels;      // (0 caption, 1 FIELD) per attribute
    clsVarTable DocAttrLabels;
    clsVarTable FileAttrLabels;
    clsVarTable FolderAttrLabels;
    clsVarTable MnfAttrLabels;
    clsVarTable VndAttrLabels;

    std::string SpaceType;  // SPACE_TYPE of the setup string

    // Key field names: the FIELD of ORDER 1, 2 and 3 of each caption section, at [0], [1], [2].
    std::array<std::string, 3> ItemKeyFields;
    std::array<std::string, 3> DocKeyFields;
    std::array<std::string, 3> FolderKeyFields;
    std::array<std::string, 3> MnfKeyFields;
    std::array<std::string, 3> VndKeyFields;

    // Main-panel field names.
    std::string ItemMainField5;    // MAIN_LBL/ITEM, ORDER 5 (read on the structure parent)
    std::string ItemMainField3;    // MAIN_LBL/ITEM, ORDER 3 (read on the structure parent)
    std::string DocMainField5;     // MAIN_LBL/DOC, ORDER 5
    std::string DocMainField6;     // MAIN_LBL/DOC, ORDER 6
    std::string FolderMainField5;  // MAIN_LBL/FOLDER, ORDER 5
    std::string AltListKeyField;   // PROPERTY_LBL/PART_LIST_LBL/ALTERNATE_LIST_LBL, ORDER 1
};
