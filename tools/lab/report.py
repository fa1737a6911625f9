"""The results page of tervak-lab: <results>/index.html.

One self-contained page (inline style, figures by relative name, no
scripts from elsewhere) that reads offline: the summary table of every
test, the parameters used per file, every figure, and the warnings
(tests that did not finish, increments that needed cutting, E50 not
reached).
"""

import html
import os


STYLE = """
body { font-family: sans-serif; margin: 1.5em; color: #222; }
table { border-collapse: collapse; margin: 0.5em 0 1.5em 0; font-size: 0.85em; }
th, td { border: 1px solid #bbb; padding: 0.2em 0.5em; text-align: left; vertical-align: top; }
th { background: #eee; }
td.num { text-align: right; font-family: monospace; }
.failed { color: #b00; font-weight: bold; }
.warn { color: #a60; }
figure { margin: 1em 0; }
img { max-width: 100%; border: 1px solid #ddd; }
"""


# After loading, the page records how many of its figures a browser could
# draw (data-figures on <body>), so that a headless browser can check it.
CHECK = """
window.addEventListener("load", function () {
  var imgs = document.images, ok = 0;
  for (var i = 0; i < imgs.length; i++) if (imgs[i].complete && imgs[i].naturalWidth > 0) ok++;
  document.body.setAttribute("data-figures", ok + " of " + imgs.length + " loaded");
});
"""


def esc(x):
    return html.escape(str(x), quote=True)


def fmt(v):
    return "%.4g" % v if isinstance(v, (int, float)) else esc(v)


def summary_table(metas):
    rows = ["<table><tr><th>test</th><th>type</th><th>model</th><th>status</th><th>increments</th><th>summary</th></tr>"]
    for m in metas:
        status = "ok" if m.get("status") == "ok" else '<span class="failed">failed</span>'
        values = ", ".join("%s = %s" % (esc(k), fmt(v)) for k, v in (m.get("summary") or {}).items() if v is not None)
        rows.append('<tr><td><a href="#%s">%s</a></td><td>%s</td><td>%s</td><td>%s</td><td class="num">%s</td><td>%s</td></tr>'
                    % (esc(m["id"]), esc(m["id"]), esc(m.get("type", "")), esc(m.get("model", "")), status,
                       esc(m.get("increments", "")), values))
    rows.append("</table>")
    return "\n".join(rows)


def parameter_table(metas):
    """Parameters per file; a test that overrides them gets its own table."""
    out = []
    first = {}
    for m in metas:
        params = m.get("parameters") or []
        f = m.get("file")
        if not params or first.get(f) == params:
            continue
        title = "%s (model %s), %s" % (m.get("soil") or m.get("title") or "", m.get("model"), os.path.basename(f or ""))
        if f in first:
            title += ", test " + m.get("test", "")
        first.setdefault(f, params)
        out.append("<h3>%s</h3>" % esc(title))
        out.append("<table><tr><th>#</th><th>name</th><th>value</th></tr>")
        for i, (name, value) in enumerate(params, start=1):
            out.append('<tr><td>%d</td><td>%s</td><td class="num">%s</td></tr>' % (i, esc(name), fmt(value)))
        out.append("</table>")
    return "\n".join(out)


def warnings_list(metas):
    items = []
    for m in metas:
        for w in m.get("warnings") or []:
            items.append('<li><a href="#%s">%s</a>: <span class="warn">%s</span></li>' % (esc(m["id"]), esc(m["id"]), esc(w)))
    return "<ul>%s</ul>" % "\n".join(items) if items else "<p>No warnings.</p>"


def figures(metas, folder, extra):
    out = []
    for m in metas:
        png = m["id"] + ".png"
        if os.path.exists(os.path.join(folder, png)):
            out.append('<figure id="%s"><img src="%s" alt="%s"><figcaption>%s</figcaption></figure>'
                       % (esc(m["id"]), esc(png), esc(m["id"]), esc(m["id"])))
    for png in extra:
        name = os.path.basename(png)
        out.append('<figure><img src="%s" alt="%s"><figcaption>%s</figcaption></figure>' % (esc(name), esc(name), esc(name)))
    return "\n".join(out)


def write_report(folder, metas, overlays):
    """Writes folder/index.html for the tests in metas; returns its path."""
    metas = sorted(metas, key=lambda m: m["id"])
    page = ["<!DOCTYPE html>", '<html lang="en"><head><meta charset="utf-8">',
            "<title>tervak-lab results</title><style>%s</style></head><body>" % STYLE,
            "<h1>tervak-lab results</h1>",
            "<h2>Summary</h2>", summary_table(metas),
            "<h2>Warnings</h2>", warnings_list(metas),
            "<h2>Parameters</h2>", parameter_table(metas),
            "<h2>Figures</h2>", figures(metas, folder, overlays),
            "<script>%s</script>" % CHECK,
            "</body></html>"]
    path = os.path.join(folder, "index.html")
    with open(path, "w", encoding="utf-8") as f:
        f.write("\n".join(page) + "\n")
    return path
