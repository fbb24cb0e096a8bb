// Gateway health: the journal's state now, and small charts of the last hour from the history
// zanthd keeps itself (/api/v1/health/history): records per second, the door decisions' latency,
// the journal's lag and the controllers connected. The charts are drawn here, in SVG.

import { api, clear, fmtTime, h, svg } from './common.js';

const W = 320;
const H = 120;
const PAD = { l: 40, r: 8, t: 8, b: 20 };

function niceMax(v) {
  if (!(v > 0)) return 1;
  const p = 10 ** Math.floor(Math.log10(v));
  for (const m of [1, 2, 2.5, 5, 10]) if (m * p >= v) return m * p;
  return 10 * p;
}

// How far back a chart reaches, as its axis says it: "60 min", "6 min", "45 s".
export function fmtSpan(ms) {
  const s = Math.round(ms / 1000);
  if (s >= 7200 && s % 3600 === 0) return `${s / 3600} h`;
  if (s >= 120) return `${Math.round(s / 60)} min`;
  return `${s} s`;
}

function fmtNumber(v) {
  if (v >= 10000) return `${Math.round(v / 1000)}k`;
  if (v >= 1000) return `${(v / 1000).toFixed(1)}k`;
  if (v >= 10 || Number.isInteger(v)) return String(Math.round(v));
  return v >= 1 ? v.toFixed(1) : String(Number(v.toPrecision(2)));
}

// A latency for the tiles: two figures below a millisecond, one above.
function fmtMs(v) { return `${v < 1 ? v.toFixed(2) : v.toFixed(1)} ms`; }

// A line chart of one or more series over the same times: [{label, cls, values: [number|null]}].
export function lineChart(times, series, { unit = '', span = 3600 * 1000 } = {}) {
  const end = times.length ? times[times.length - 1] : Date.now();
  const start = end - span;
  const all = series.flatMap((s) => s.values).filter((v) => typeof v === 'number');
  const max = niceMax(all.length ? Math.max(...all) : 0);
  const x = (t) => PAD.l + ((t - start) / span) * (W - PAD.l - PAD.r);
  const y = (v) => H - PAD.b - (v / max) * (H - PAD.t - PAD.b);
  const root = svg('svg', { viewBox: `0 0 ${W} ${H}`, class: 'chart', role: 'img', preserveAspectRatio: 'none' });
  for (const v of [0, max / 2, max]) {
    root.append(svg('line', { x1: PAD.l, x2: W - PAD.r, y1: y(v), y2: y(v), class: 'grid' }));
    root.append(svg('text', { x: PAD.l - 4, y: y(v) + 3, class: 'axis', 'text-anchor': 'end' }, `${fmtNumber(v)}${unit}`));
  }
  for (const [t, label] of [[start, `−${fmtSpan(span)}`], [start + span / 2, `−${fmtSpan(span / 2)}`], [end, 'now']]) {
    root.append(svg('text', { x: x(t), y: H - 5, class: 'axis', 'text-anchor': t === start ? 'start' : t === end ? 'end' : 'middle' }, label));
  }
  for (const s of series) {
    // A gap in the data (no decision in a step, a restart) breaks the line.
    let d = '';
    let pen = false;
    s.values.forEach((v, i) => {
      if (typeof v !== 'number' || times[i] < start) { pen = false; return; }
      d += `${pen ? 'L' : 'M'}${x(times[i]).toFixed(1)},${y(v).toFixed(1)} `;
      pen = true;
    });
    if (d) root.append(svg('path', { d, class: `series ${s.cls}` }));
    const last = s.values.length ? s.values[s.values.length - 1] : null;
    if (typeof last === 'number') root.append(svg('circle', { cx: x(end), cy: y(last), r: 2.5, class: `dot ${s.cls}` }));
  }
  return root;
}

export default {
  mount(root) {
    let stopped = false;
    let step = 10;
    let span = 3600 * 1000;  // what the gateway keeps: step_s × points_kept
    const tiles = h('div', { class: 'tiles', id: 'health-tiles' });
    const charts = h('div', { class: 'charts', id: 'health-charts' });
    const note = h('p', { class: 'muted small', id: 'health-note' });
    root.append(
      h('div', { class: 'page-head' },
        h('div', {}, h('h1', {}, 'Gateway health'),
          h('p', { class: 'muted', id: 'health-lead' }, 'The journal now, and the last hour as the gateway kept it.'))),
      tiles, charts, note);

    function tile(label, value, tone, detail, id) {
      return h('div', { class: `tile tile-${tone}`, id }, h('div', { class: 'tile-label' }, label),
        h('div', { class: 'tile-value' }, value), detail ? h('div', { class: 'tile-detail' }, detail) : null);
    }

    function card(title, legend, chart, id) {
      return h('section', { class: 'chart-card', id },
        h('div', { class: 'chart-head' }, h('h2', {}, title),
          h('div', { class: 'legend' }, legend.map(([cls, label]) => h('span', { class: `key ${cls}` }, label)))),
        chart);
    }

    let health = null;
    let history = null;

    function render() {
      const points = history ? history.points : [];
      const lastPoint = points[points.length - 1];
      const ok = health && health.status === 'healthy';
      clear(tiles).append(
        tile('Journal', health ? (ok ? 'Storing' : 'Not storing') : '…', health ? (ok ? 'ok' : 'bad') : 'neutral',
          health ? (ok ? `last id #${health.journal_last_id}` : health.journal) : '', 'tile-journal'),
        tile('Waiting for the journal', health ? String(health.journal_backlog) : '…', health && health.journal_backlog > 1000 ? 'warn' : 'neutral', 'records in hand'),
        tile('Decisions', lastPoint && lastPoint.decision_p50_ms !== null ? fmtMs(lastPoint.decision_p50_ms) : '—', 'neutral',
          lastPoint && lastPoint.decision_p99_ms !== null ? `p50; p99 ${fmtMs(lastPoint.decision_p99_ms)} over the last ${step} s` : `none in the last ${step} s`),
        tile('Controllers', lastPoint ? String(lastPoint.controllers_connected) : '…', 'neutral', 'connected', 'tile-controllers'));
      const times = points.map((p) => p.t_ms);
      clear(charts).append(
        card('Records per second', [['s-events', 'events'], ['s-alarms', 'alarms'], ['s-lookups', 'look-ups']],
          lineChart(times, [
            { cls: 's-events', values: points.map((p) => p.events_per_s) },
            { cls: 's-alarms', values: points.map((p) => p.alarms_per_s) },
            { cls: 's-lookups', values: points.map((p) => p.lookups_per_s) }], { span }), 'chart-rates'),
        card('Decision latency', [['s-p50', 'p50'], ['s-p99', 'p99']],
          lineChart(times, [
            { cls: 's-p99', values: points.map((p) => p.decision_p99_ms) },
            { cls: 's-p50', values: points.map((p) => p.decision_p50_ms) }], { unit: ' ms', span }), 'chart-latency'),
        card('Journal lag', [['s-lag', 'records waiting']],
          lineChart(times, [{ cls: 's-lag', values: points.map((p) => p.journal_lag_records) }], { span }), 'chart-lag'),
        card('Controllers connected', [['s-connected', 'connected']],
          lineChart(times, [{ cls: 's-connected', values: points.map((p) => p.controllers_connected) }], { span }), 'chart-connected'));
      note.textContent = points.length
        ? `${points.length} points, one each ${step} s, the last at ${fmtTime(lastPoint.t_ms)}. The gateway keeps them in memory: a restart starts afresh.`
        : `The first point comes ${step} s after the gateway started.`;
    }

    async function readHealth() {
      try {
        health = await api('GET', 'healthz');
      } catch (e) {
        // 503 is the journal saying it can't store: its body says why.
        health = e.status === 503 && e.body.status ? e.body : health;
      }
    }

    async function readHistory() {
      try {
        history = await api('GET', 'health/history');
        step = history.step_s;
        span = history.step_s * history.points_kept * 1000;
        document.getElementById('health-lead').textContent = span === 3600 * 1000
          ? 'The journal now, and the last hour as the gateway kept it.'
          : `The journal now, and the last ${fmtSpan(span)} as the gateway kept it.`;
      } catch (e) { /* the banner says when the gateway is away */ }
    }

    let timer = null;
    async function loop() {
      await Promise.all([readHealth(), readHistory()]);
      if (stopped) return;
      render();
      timer = setTimeout(loop, Math.max(2, Math.min(step, 5)) * 1000);
    }
    render();
    loop();
    return () => { stopped = true; clearTimeout(timer); };
  },
};
