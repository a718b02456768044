// The export model: the in-memory form of one export data file, filled by the parser and read
// by the workbook builder. Every array is 0-based; every count holds the highest index, -1 for
// none.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "support/clsVarTable.h"

// Head of every object record; also a related item, a local alternate or a vendor.
// Key order is deliberate: Key1 = key attribute ID 1, Key2 = ID 3, Key3 = ID 2.
struct ItemStruct {
    std::string Key1;
    std::string Key2;
    std::string Key3;
    VarStrArray Attrs;
};

// A related folder has exactly the fields of an item head.
using FoldStruct = ItemStruct;

// One file of a document.
struct FileStruct {
    std::string FileName;
    VarStrArray Attrs;
};

// Head of a document record, and a related document.
struct DocStruct {
    std::string Key1;
    std::string Key2;
    std::string Key3;
    VarStrArray Attrs;
    std::vector<FileStruct> Files;
    int32_t FileCount = -1;
};

// A manufacturer of an item.
struct MNFStruct {
    std::string Key1;
    std::string Key2;
    std::string Key3;
    VarStrArray Attrs;
    std::vector<ItemStruct> Vendors;
    int32_t VendorCount = -1;
};

// One exported item.
// In each record the level, the counts and the flag come first, side by side: a large export
// holds many records, and each number beside its list would take the room of eight bytes.
struct XItemStruct {
    int32_t Level = 0;
    int32_t LAICount = -1;
    int32_t MNFCount = -1;
    int32_t VNDCount = -1;
    int32_t DocCount = -1;
    int32_t FolderCount = -1;
    int16_t MnfVndFlag = 0;
    ItemStruct Head;
    std::string PSAttr1;
    std::string PSAttr2;
    std::string RefDes;
    VarStrArray AddAttrs;
    std::vector<ItemStruct> LAIs;
    std::vector<MNFStruct> MNFs;
    std::vector<ItemStruct> VNDs;
    std::vector<DocStruct> Docs;
    std::vector<FoldStruct> Folders;
    std::string Children;
};

// One exported document.
struct XDocStruct {
    int32_t Level = 0;
    int32_t ItemCount = -1;
    int32_t FolderCount = -1;
    int32_t DocCount = -1;
    DocStruct Head;
    std::string MainAttr5;
    std::string MainAttr6;
    VarStrArray AddAttrs;
    std::vector<ItemStruct> Items;
    std::vector<FoldStruct> Folders;
    std::vector<DocStruct> Docs;
    std::string Children;
};

// One exported folder.
struct XFoldStruct {
    int32_t Level = 0;
    int32_t ItemCount = -1;
    int32_t DocCount = -1;
    int32_t FolderCount = -1;
    FoldStruct Head;
    std::string MainAttr5;
    VarStrArray AddAttrs;
    std::vector<ItemStruct> Items;
    std::vector<DocStruct> Docs;
    std::vector<FoldStruct> Folders;
    std::string Children;
};

// The model of one call.
struct clsExportModel {
    std::string ObjectType;   // OBJECT_TYPE of the setup string
    int16_t ExportKind = 0;   // 1 items, 2 documents, 3 folders
    int16_t IsStructure = 0;  // 1 structure, 2 collection
    int32_t ObjCount = -1;    // highest index of the array of the current kind, -1 none
    std::string RootObjName;  // node name of the first object under the root, set by the parse
    // The objects grow one by one as the walk meets them: a record once placed never moves.
    std::deque<XItemStruct> XItems;
    std::deque<XDocStruct> XDocs;
    std::deque<XFoldStruct> XFolders;

    // Empties the array of the current kind and gives its memory back: no object is left.
    void ClearRecords() {
        switch (ExportKind) {
            case 1:
                std::deque<XItemStruct>().swap(XItems);
                break;
            case 2:
                std::deque<XDocStruct>().swap(XDocs);
                break;
            case 3:
                std::deque<XFoldStruct>().swap(XFolders);
                break;
            default:
                break;
        }
        ObjCount = -1;
    }
};
