// What the item views read from an item export: every distinct item (identifier and revision)
// with the quantity the structure needs of it in total and its distinct uses (clsBldExcelViews).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// One distinct item and how the structure uses it.
struct clsViewItem {
    std::string sId;
    std::string sRev;
    std::string sDesc;
    // The anchor name of the first of its objects that has a detail block, where its links
    // lead; "" when none has one.
    std::string sAnchor;
    double dTotal = 0;      // the quantity the structure needs, summed over every path to it
    bool bUnknown = false;  // a quantity on a path to it is not a number: the total is unknown
    std::vector<size_t> arrUses;  // its distinct uses, in the order they first appear
};

// One use of an item: in which parent, under which find number and quantity (as the data file
// writes them).
struct clsViewUse {
    size_t lItem = 0;
    size_t lParent = 0;
    std::string sFindNo;
    std::string sQuantity;
};

struct clsItemUses {
    std::vector<clsViewItem> arrItems;  // in the order the structure first lists them
    std::vector<clsViewUse> arrUses;
    // Uses whose quantity is not a number, each named once ("ID REV: "text""), in order.
    std::vector<std::string> arrNotNumbers;
};

// A quantity as the data file writes it: "2", "1.5" or "1,5" (either mark as the decimal
// separator), a sign allowed, blanks around it ignored. False for anything else, an empty text
// included.
bool ParseQuantity(const std::string& sText, double& dValue);
