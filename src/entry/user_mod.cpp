// The host's entry: dispatch by model number and the attribute report.
#include "entry/user_mod.hpp"

#include "models/models.hpp"
#include "toolkit/records.hpp"

namespace tervak {

void User_Mod(const ModelArgs& a) {
    switch (*a.iModel) {
        case 1: mymodel1(a); break;
        case 2: mymodel2(a); break;
        case 3: mymodel3(a); break;
        case 4: mymodel4(a); break;
        default:
            ListRecord() << "invalid model number in UsrMod" << *a.iModel << ListRecord::end;
            ListRecord() << "IDTask: " << *a.IDTask << ListRecord::end;
            stop_run("invalid model number in UsrMod");
    }
    // Attribute report at the first point as the host numbers it (the test
    // is on the sum, so element 2, point 0 reports too).
    if (*a.IDTask == 5 && *a.iEl + *a.Int == 2) {
        ListRecord() << "nStat : " << *a.nStat << ListRecord::end;
        ListRecord() << "NonSym : " << *a.NonSym << ListRecord::end;
        ListRecord() << "StrsDep : " << *a.StrsDep << ListRecord::end;
        ListRecord() << "TimeDep : " << *a.TimeDep << ListRecord::end;
        ListRecord() << "Tangent : " << *a.Tangent << ListRecord::end;
    }
}

}  // namespace tervak
