// The editor's script in the rendered page view. It runs in a world of its
// own beside the page (whose own scripts are off), finds the nodes of each
// block by the comments that ViewHtml puts in, outlines the current block,
// and reports clicks, double-clicks, Enter and Delete through the web
// channel's "bridge". The page's URL carries which render
// this is (g) and where to scroll to: a block (a) and how far below its top
// (o), or else a position in pixels (y).
//
// Forms off screen are not laid out (content-visibility), which is most of
// what a page of many forms costs to show; they stand in at an estimated
// height until scrolled to. Pixels above the place scrolled to therefore
// differ between renders, so the place is kept as the block at the top of
// the view, reported to the editor as the person scrolls.
#pragma once

namespace formwiz::editor {

inline constexpr char kViewScript[] = R"js(
(function () {
  'use strict';
  if (window.formwizView) return;
  const BLOCK = 'fw-block ', PARA = 'fw-para ';
  const params = new URLSearchParams(location.search);
  const generation = Number(params.get('g') || 0);
  const restoreY = Number(params.get('y') || 0);
  const anchor = params.has('a') ? Number(params.get('a')) : -1;
  const anchorOffset = Number(params.get('o') || 0);
  const indexOf = new WeakMap();
  const blocks = [];
  let current = -1;
  let bridge = null;

  const isMarker = (node) => node.nodeType === Node.COMMENT_NODE &&
      (node.data.startsWith(BLOCK) || node.data.startsWith(PARA));

  // A paragraph is the element its marker stands in; any other block is
  // what follows its marker up to the next block, as siblings. Text of its
  // own gets a span, so that it can be outlined too.
  function collect() {
    const walker =
        document.createTreeWalker(document, NodeFilter.SHOW_COMMENT);
    const markers = [];
    for (let c = walker.nextNode(); c; c = walker.nextNode()) {
      if (isMarker(c)) markers.push(c);
    }
    const paragraphs = new Set();
    for (const c of markers) {
      if (c.data.startsWith(PARA) && c.parentElement) {
        paragraphs.add(c.parentElement);
      }
    }
    for (const c of markers) {
      const para = c.data.startsWith(PARA);
      const index = parseInt(c.data.slice((para ? PARA : BLOCK).length), 10);
      if (!(index >= 0)) continue;
      const nodes = [];
      if (para) {
        if (c.parentElement) nodes.push(c.parentElement);
      } else {
        for (let n = c.nextSibling; n && !isMarker(n) && !paragraphs.has(n);
             n = n.nextSibling) {
          if (n.nodeType === Node.ELEMENT_NODE) {
            nodes.push(n);
          } else if (n.nodeType === Node.TEXT_NODE && n.data.trim() !== '') {
            const span = document.createElement('span');
            n.replaceWith(span);
            span.append(n);
            n = span;
            nodes.push(span);
          }
        }
      }
      blocks[index] = nodes;
      for (const n of nodes) {
        indexOf.set(n, index);
        n.setAttribute('data-formwiz-block', '');
      }
    }
  }

  function blockOf(node) {
    for (let n = node; n; n = n.parentNode) {
      if (indexOf.has(n)) return indexOf.get(n);
    }
    return -1;
  }

  function setCurrent(index, scroll) {
    for (const n of blocks[current] || []) {
      n.removeAttribute('data-formwiz-current');
    }
    current = index;
    const nodes = blocks[current] || [];
    for (const n of nodes) n.setAttribute('data-formwiz-current', '');
    if (scroll && nodes.length) nodes[0].scrollIntoView({block: 'nearest'});
  }

  // The outline is the editor's, never part of the page: a stylesheet
  // adopted by the document, outside its DOM.
  const sheet = new CSSStyleSheet();
  sheet.replaceSync(
      '[data-formwiz-block]:hover { outline: 1px dashed #0b57d0aa; ' +
      'outline-offset: 2px; }\n' +
      '[data-formwiz-current], [data-formwiz-current]:hover { ' +
      'outline: 2px solid #0b57d0 !important; outline-offset: 2px; }\n' +
      'form[data-formwiz-block] { content-visibility: auto; ' +
      'contain-intrinsic-size: auto 600px; }');
  document.adoptedStyleSheets = [...document.adoptedStyleSheets, sheet];

  // Nothing in the view submits, follows a link or toggles: a click only
  // selects.
  window.addEventListener('submit', (e) => e.preventDefault(), true);
  window.addEventListener('click', (e) => {
    e.preventDefault();
    const index = blockOf(e.target);
    if (index < 0) return;
    setCurrent(index, false);
    if (bridge) bridge.blockClicked(index);
  }, true);
  window.addEventListener('dblclick', (e) => {
    e.preventDefault();
    const index = blockOf(e.target);
    if (index >= 0 && bridge) bridge.blockActivated(index);
  }, true);
  window.addEventListener('keydown', (e) => {
    if (current < 0 || !bridge) return;
    if (e.key === 'Enter') {
      e.preventDefault();
      bridge.blockActivated(current);
    } else if (e.key === 'Delete') {
      e.preventDefault();
      bridge.deletePressed(current);
    }
  }, true);
  // The first block whose box reaches below the top of the view, and how
  // far the view's top is below that block's top. Blocks are in document
  // order, so their boxes are too.
  function topBlock() {
    const shown = [];
    for (let i = 0; i < blocks.length; ++i) {
      if (blocks[i] && blocks[i].length) shown.push(i);
    }
    let low = 0, high = shown.length;
    while (low < high) {
      const mid = (low + high) >> 1;
      if (blocks[shown[mid]][0].getBoundingClientRect().bottom > 0) {
        high = mid;
      } else {
        low = mid + 1;
      }
    }
    if (low === shown.length) return null;
    const index = shown[low];
    return {index: index,
            offset: -blocks[index][0].getBoundingClientRect().top};
  }

  function report() {
    const top = topBlock();
    if (top && bridge) {
      bridge.scrolled(generation, top.index, top.offset, window.scrollY);
    }
  }

  function restore() {
    const nodes = blocks[anchor] || [];
    if (nodes.length) {
      window.scrollTo(
          0, nodes[0].getBoundingClientRect().top + window.scrollY +
              anchorOffset);
    } else if (restoreY > 0) {
      window.scrollTo(0, restoreY);
    }
  }

  // Once a frame at most: the editor keeps the last report.
  let reportPending = false;
  window.addEventListener('scroll', () => {
    if (reportPending) return;
    reportPending = true;
    requestAnimationFrame(() => {
      reportPending = false;
      report();
    });
  }, {passive: true});

  collect();
  // Once now, while stylesheets may still be loading, and again when they
  // are in: the page then has its full height.
  if (anchor >= 0 || restoreY > 0) {
    restore();
    window.addEventListener('load', restore);
  }

  window.formwizView = {
    setCurrent: setCurrent,
    blockCount: () => blocks.length,
    // Where a block is in the view's coordinates, for tests that click it.
    rect: (index) => {
      const nodes = blocks[index] || [];
      if (!nodes.length) return null;
      const r = nodes[0].getBoundingClientRect();
      return {x: r.x, y: r.y, width: r.width, height: r.height};
    },
  };
  new QWebChannel(qt.webChannelTransport, (channel) => {
    bridge = channel.objects.bridge;
    bridge.ready(generation);
    report();
  });
})();
)js";

// Runs as the document is made, before the page's HTML is parsed: the
// forms this editor puts in a page (of class fw-form) are laid out only
// once on screen from the first layout on, not only once the view's
// script has found the blocks.
inline constexpr char kViewEarlyScript[] = R"js(
(function () {
  'use strict';
  const sheet = new CSSStyleSheet();
  sheet.replaceSync('form.fw-form { content-visibility: auto; ' +
      'contain-intrinsic-size: auto 600px; }');
  document.adoptedStyleSheets = [...document.adoptedStyleSheets, sheet];
})();
)js";

}  // namespace formwiz::editor
