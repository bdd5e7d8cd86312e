// SPDX-License-Identifier: Apache-2.0
//
// The style sheet of a report: one column, dark or light as the reader has it, black on white
// when it is printed. Colours have a contrast of at least 4.5 to 1.

#pragma once

namespace aaactl {

inline constexpr char kStyle[] = R"(
:root{color-scheme:light dark;--text:#1b1f24;--dim:#57606a;--back:#fff;--card:#f6f8fa;--edge:#8c959f;
--bad:#a40e26;--warn:#7a4b00;--good:#116329}
@media(prefers-color-scheme:dark){:root{--text:#e6edf3;--dim:#9da7b3;--back:#0d1117;--card:#161b22;
--edge:#6e7681;--bad:#ff8f88;--warn:#e3b341;--good:#56d364}}
*{box-sizing:border-box}
body{margin:0 auto;padding:1rem;max-width:56rem;background:var(--back);color:var(--text);
font:1rem/1.5 system-ui,sans-serif;overflow-wrap:anywhere}
h1{font-size:1.5rem;margin:0}h2{font-size:1.25rem;margin:2rem 0 .5rem}h3{font-size:1.05rem;margin:0 0 .5rem}
h4{font-size:.95rem;margin:.75rem 0 .25rem}
p{margin:.25rem 0}.dim{color:var(--dim)}.bad{color:var(--bad)}.warn{color:var(--warn)}.good{color:var(--good)}
.card{background:var(--card);border:1px solid var(--edge);border-radius:.5rem;padding:.75rem 1rem;
margin:.75rem 0;break-inside:avoid}
ul,ol{margin:.25rem 0;padding-left:1.5rem}ul.plain{list-style:none;padding:0}
ul.plain>li{border-top:1px solid var(--edge);padding:.4rem 0}ul.plain>li:first-child{border:0}
dl{display:grid;grid-template-columns:minmax(0,1fr) minmax(0,2fr);gap:.1rem .75rem;margin:.25rem 0}
dt{color:var(--dim)}dd{margin:0}
summary{cursor:pointer}summary h3{display:inline;margin:0}
nav a{margin-right:1rem}a{color:inherit}
svg.flow{display:block;width:100%;max-width:24rem;height:auto;margin:.5rem 0}
.flow text{fill:var(--text);font:12px ui-monospace,monospace}.flow .small{font-size:11px}
.flow .name{font-weight:600}
.box{fill:var(--back);stroke:var(--edge)}.box.broken{stroke:var(--bad);stroke-dasharray:4 3}
.box.end{stroke:var(--bad)}.arrow{fill:none;stroke:var(--edge);stroke-width:1.5}
.arrow.bad{stroke:var(--bad)}.arrow.good{stroke:var(--good)}
@media print{:root{--text:#000;--dim:#333;--back:#fff;--card:#fff;--edge:#666;--bad:#000;--warn:#000;
--good:#000}
nav{display:none}body{max-width:none;padding:0}
details::details-content{content-visibility:visible;display:block;height:auto}}
)";

}  // namespace aaactl
