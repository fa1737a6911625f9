// The four model routines behind User_Mod. Each takes the host's arguments
// 1 to 28 and 31 by reference, exactly as the host passed them.
#pragma once

namespace tervak {

struct ModelArgs {
    int* IDTask;
    int* iModel;
    int* IsUndr;
    int* iStep;
    int* iTer;
    int* iEl;
    int* Int;
    void* Arg8;
    void* Arg9;
    void* Arg10;
    double* Time0;
    void* Arg12;
    double* Props;
    double* Sig0;
    double* Pw0;
    double* StVar0;
    double* dEps;
    double* D;
    double* BulkW;
    double* Sig;
    double* Pw;
    double* StVar;
    int* iPlast;
    int* nStat;
    int* NonSym;
    int* StrsDep;
    int* TimeDep;
    int* Tangent;
    void* Arg31;
};

// Writable 1-based view of a host's real array (StVar, or StVar0 in task 1),
// read and written at the named positions of models/parameters.hpp.
struct State {
    double* s;
    constexpr explicit State(double* p) : s(p) {}
    constexpr double& operator()(int i) const { return s[i - 1]; }
};

void mymodel1(const ModelArgs& a);
void mymodel2(const ModelArgs& a);
void mymodel3(const ModelArgs& a);
void mymodel4(const ModelArgs& a);

// Model 1's parameter calibration (task 7): rewrites K0_nc and Ei_ref.
void Iterative_hss(double* Props, int option);

}  // namespace tervak
