// Draws the page's panels, shows and hides channels, and zooms panels together.
"use strict";

const panels = JSON.parse(document.getElementById("panels").textContent);
const config = { responsive: true, displaylogo: false,
                 modeBarButtonsToRemove: ["select2d", "lasso2d", "autoScale2d"] };

function plots(selector) {
  return [...document.querySelectorAll(selector)].map((panel) => panel.querySelector(".place"));
}

// The same range in all panels that belong together; the others' own events end there.
function zoomTogether(plot, word, change) {
  const low = change["xaxis.range[0]"];
  const reset = change["xaxis.autorange"];
  if (low === undefined && !reset) { return; }
  for (const other of plots(`.panel[data-together="${word}"]`)) {
    const range = [...plot.layout.xaxis.range];
    const same = other.layout.xaxis.range.every((end, i) => end === range[i]);
    if (other !== plot && !same) {
      Plotly.relayout(other, { "xaxis.range": range });
    }
  }
}

// The library stands in the page as base64 of a gzip file.
async function loadLibrary() {
  const packed = atob(document.getElementById("library").textContent);
  const bytes = Uint8Array.from(packed, (character) => character.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("gzip"));
  const script = document.createElement("script");
  script.textContent = await new Response(stream).text();
  document.head.append(script);
}

async function drawAll() {
  for (const { name, plot, together } of panels) {
    const place = document.getElementById(`plot-${name}`);
    await Plotly.newPlot(place, plot.data, plot.layout, config);
    if (together) {
      place.on("plotly_relayout", (change) => zoomTogether(place, together, change));
    }
  }
}

function say(text) {
  const trouble = document.getElementById("trouble");
  trouble.textContent = text;
  trouble.hidden = false;
}

function showChannel(box) {
  const selector = `.panel[data-channel="${box.value}"]`;
  for (const panel of document.querySelectorAll(selector)) { panel.hidden = !box.checked; }
  if (box.checked) { plots(selector).forEach((plot) => Plotly.Plots.resize(plot)); }
}

async function start() {
  if (typeof DecompressionStream === "undefined") {
    say("This browser is too old for the plots. The figures below do not need it.");
    return;
  }
  try {
    await loadLibrary();
    await drawAll();
  } catch (error) {
    say(`The plots could not be drawn: ${error}`);
    throw error;
  }
  for (const box of document.querySelectorAll("#channels input")) {
    box.addEventListener("change", () => showChannel(box));
    showChannel(box);  // a browser keeps its boxes when a page is loaded again
  }
  document.documentElement.dataset.drawn = panels.length;
}

start();
