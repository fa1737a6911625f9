// Running laboratory tests: CSV rows as increments converge, a summary of
// each test (JSON beside the CSV) and the summary table.
#pragma once

#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "lab_file.hpp"

namespace tervak::lab {

struct RunOptions {
    std::string out_dir = "results";
    bool progress = false;      // progress line on standard error
    bool write_files = true;    // CSV and JSON
};

struct SummaryItem {
    std::string key;
    double value;
    std::string unit;
};

struct CyclicPoint {
    double gamma = 0, G = 0, G_ratio = 0, damping = 0, u = 0;
};

// One converged increment in the soil-mechanics sign (compression positive).
struct ResultRow {
    int stage = 0;
    int increment = 0;
    long step = 0;
    Vec6 eps{};  // strains, engineering shear strains
    Vec6 sig{};  // effective stresses
    double u = 0.0;  // pore pressure
    int iplast = 0;
    int iterations = 0;
    Vec6 eps_stage{};  // strains since the start of the stage
    double e = std::numeric_limits<double>::quiet_NaN();  // void ratio, with e0
    double p() const { return (sig[0] + sig[1] + sig[2]) / 3.0; }
    double q() const;
    double eps_v() const { return eps[0] + eps[1] + eps[2]; }
    double eps_q() const;
};

struct TestResult {
    std::string id;  // <file stem>_<test name>
    std::string file_stem, test_name, kind, title, units;
    int model = 0;
    bool ok = false;
    std::string error;
    long increments = 0;
    long stress_calls = 0;
    double seconds = 0.0;
    std::vector<SummaryItem> summary;
    std::vector<std::vector<SummaryItem>> stage_summary;  // per stage, in order
    std::vector<std::string> warnings;  // for the report: E50 not reached, cut increments, ...
    long cut_increments = 0;
    std::vector<CyclicPoint> cyclic;
    std::string csv_path, json_path;
    std::vector<ResultRow> rows;
};

// A result naming the test, with nothing run yet.
TestResult blank_result(const TestFile& file, const LabTest& test);

// Runs one test of a file. Never throws for a failing test: the error is
// in the result, and everything converged before it is in the CSV.
TestResult run_test(const ModelLibrary& lib, const TestFile& file, const LabTest& test,
                    const RunOptions& opt);

// Writes <out_dir>/<id>.json: the test, its status and its summary.
void write_summary_json(const TestFile& file, const LabTest& test, const std::string& out_dir, TestResult& r);

// Summary quantities of the test and of each stage from the rows of a
// finished (or partly finished) test (lab_summary.cpp).
void summarize(const LabTest& test, TestResult& r);

// The stage to drive, with the targets that depend on the state reached
// (strain counted from the start of shearing, deviator over the lateral
// stress) filled in; shear_start holds the strains (soil sign) there.
StagePlan resolve_stage(const StagePlan& plan, const StageInfo& info, const PointState& st, const Vec6& shear_start);

// The summary table, one line per test.
void print_summary_table(std::FILE* out, const std::vector<TestResult>& results);

}  // namespace tervak::lab
