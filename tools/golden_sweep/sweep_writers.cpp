// Diagnostic writers and the companion routines describing the models.
#include <cstring>
#include <string>

#include "library.hpp"
#include "sections.hpp"
#include "sweep_support.hpp"

namespace sweep {

namespace {

const char* const kLabels[] = {"", "x", "Prs_E", "dEps  ", "D3ab12", "gamma_p_E",
                               "Las tensiones ppales", "a label long enough to need a record of its own"};

void writers(long k) {
    Rng r = case_rng(201, static_cast<std::uint64_t>(k));
    const i32 units[] = {-1, 0, 1, 6, 7};
    const i32 unit = units[r.pick(5)];
    const char* label = kLabels[r.pick(8)];
    const std::size_t len = std::strlen(label);
    double v[36];
    i32 iv[12];
    for (double& x : v) x = r.chance(0.08) ? r.special() : r.range(-1.0, 1.0) * r.decades(-12, 12);
    for (i32& x : iv) x = r.chance(0.5) ? r.pick(2000) - 1000 : static_cast<i32>(r.next());
    const i32 n = r.pick(13);
    const i32 LA = 6, nr = r.pick(7), nc = r.pick(7);
    const int which = r.pick(6);
    Out("writers").i(k).i(which).i(unit).i(n).end();
    before_call();
    switch (which) {
        case 0:
            reinterpret_cast<void (*)(const i32*, const char*, const double*, std::size_t)>(
                symbol("wrival_"))(&unit, label, v, len);
            break;
        case 1:
            reinterpret_cast<void (*)(const i32*, const char*, const i32*, std::size_t)>(
                symbol("wriivl_"))(&unit, label, iv, len);
            break;
        case 2:
            reinterpret_cast<void (*)(const i32*, const char*, const i32*, const i32*,
                                      std::size_t)>(symbol("wriivc_"))(&unit, label, iv, &n, len);
            break;
        case 3:
            reinterpret_cast<void (*)(const i32*, const char*, const double*, const i32*,
                                      std::size_t)>(symbol("wrivec_"))(&unit, label, v, &n, len);
            break;
        case 4:
            reinterpret_cast<void (*)(const i32*, const char*, const double*, const i32*,
                                      std::size_t)>(symbol("wrivec5_"))(&unit, label, v, &n, len);
            break;
        default:
            reinterpret_cast<void (*)(const i32*, const char*, const double*, const i32*,
                                      const i32*, const i32*, std::size_t)>(symbol("wrimat_"))(
                &unit, label, v, &LA, &nr, &nc, len);
            break;
    }
}

using CountFn = void (*)(i32*, i32*);
using NameFn = void (*)(i32*, i32*, char*, std::size_t);

void text_of(const char* tag, NameFn f, i32 m, i32 j, std::size_t len) {
    char buf[300];
    std::memset(buf, '#', sizeof buf);
    before_call();
    f(&m, &j, len == 0 ? nullptr : buf, len);
    Out(tag).i(m).i(j).i(static_cast<long>(len)).bytes(buf, len == 0 ? 0 : static_cast<int>(len) + 2).end();
}

void metadata(const std::string& suffix) {
    const auto sym = [&](const char* base) { return symbol((std::string(base) + suffix).c_str()); };
    i32 nMod = -1;
    before_call();
    reinterpret_cast<void (*)(i32*)>(sym("getmodelcount"))(&nMod);
    Out("models").i(nMod).end();
    for (i32 m = -1; m <= 6; ++m) {
        char buf[80];
        std::memset(buf, '#', sizeof buf);
        before_call();
        reinterpret_cast<void (*)(i32*, char*, std::size_t)>(sym("getmodelname"))(&m, buf, 64);
        Out("model").i(m).bytes(buf, 66).end();
        i32 counts[2] = {-1, -1};
        before_call();
        reinterpret_cast<CountFn>(sym("getparamcount"))(&m, &counts[0]);
        before_call();
        reinterpret_cast<CountFn>(sym("getstatevarcount"))(&m, &counts[1]);
        Out("counts").i(m).iv(counts, 2).end();
        const char* names[] = {"getparamname", "getparamunit", "getstatevarname", "getstatevarunit"};
        for (int w = 0; w < 4; ++w)
            for (i32 j = -1; j <= counts[w / 2] + 1; ++j)
                for (std::size_t len : {std::size_t{0}, std::size_t{4}, std::size_t{260}})
                    text_of(names[w], reinterpret_cast<NameFn>(sym(names[w])), m, j, len);
    }
}

}  // namespace

void writer_sections() {
    guarded("writers", 6000, writers);
    Out("section").s("metadata").end();
    metadata("_");
    metadata("");
}

}  // namespace sweep
