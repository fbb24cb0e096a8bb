// Doors: each door of the site's config with its lock input, opened from here. Opening switches
// the door's relay on; the relay timer the gateway wrote into the controller switches it off
// again. The page counts the timer down and reads the lock input each second until the door has
// locked again.

import { api, app, clear, confirmDialog, fmtAgo, h, live, toast } from './common.js';
import { decisionBadge, doorOf, summary } from './activity.js';

export default {
  mount(root) {
    const doors = app.site.doors || [];
    const cards = new Map();  // name -> {door, el, state, countdown...}
    const grid = h('div', { class: 'door-grid', id: 'door-grid' });
    root.append(
      h('div', { class: 'page-head' },
        h('div', {}, h('h1', {}, 'Doors'),
          h('p', { class: 'muted' }, app.canOperate()
            ? 'Open a door for someone: it locks again by itself when its relay timer runs out.'
            : 'Your token is read-only: you can watch the doors but not open them.'))),
      grid);
    if (!doors.length) {
      grid.append(h('p', { class: 'empty' }, 'The gateway\'s config names no doors ([[doors]] in zanthd.toml).'));
      return () => {};
    }

    let stopped = false;

    function stateView(c) {
      const st = c.state;
      const label = st === 'locked' ? 'Locked' : st === 'unlocked' ? 'Unlocked' : st === 'offline' ? 'Controller offline' : st === 'error' ? 'Unknown' : 'Reading…';
      return h('div', { class: `door-state door-${st}`, 'data-state': st, title: c.error || '' },
        h('span', { class: 'door-icon' }), h('span', {}, label));
    }

    // A card is built once; its parts are brought up to date in place, so that the button a
    // hand is reaching for stays the same element.
    function build(c) {
      const d = c.door;
      c.stateSlot = h('div', {});
      c.inputSlot = h('dd', {});
      c.countSlot = h('div', {});
      c.lastSlot = h('div', { class: 'door-last' });
      c.button = app.canOperate()
        ? h('button', { type: 'button', class: 'primary', 'data-open': d.name, onclick: () => open(c) }, 'Open door')
        : null;
      c.bar = h('div', { class: 'countdown-bar' });
      c.countText = h('div', { class: 'countdown-text' });
      c.countdown = h('div', { class: 'countdown' }, c.countText, h('div', { class: 'countdown-track' }, c.bar));
      c.el = h('article', { class: 'door-card', 'data-door': d.name },
        h('div', { class: 'door-head' }, h('h2', {}, d.name), c.stateSlot),
        h('dl', { class: 'door-facts' },
          h('dt', {}, 'Controller'), h('dd', { class: 'mono' }, `${d.controller}, door ${d.door}`),
          h('dt', {}, 'Relay'), h('dd', {}, `${d.relay}, timer ${d.open_ms ? `${d.open_ms / 1000} s` : 'not set'}`),
          h('dt', {}, 'Lock input'), c.inputSlot),
        c.countSlot, c.lastSlot,
        h('div', { class: 'door-actions' }, c.button));
      render(c);
    }

    function render(c) {
      const d = c.door;
      if (c.shownState !== c.state) {
        c.shownState = c.state;
        clear(c.stateSlot).append(stateView(c));
        c.inputSlot.textContent = `${d.lock_input}${c.state === 'unlocked' ? ' (on)' : c.state === 'locked' ? ' (off)' : ''}`;
      }
      if (c.button) {
        c.button.disabled = !!c.opening;
        c.button.textContent = c.opening ? 'Opening…' : 'Open door';
      }
      const left = c.relockAt ? Math.max(0, c.relockAt - Date.now()) : 0;
      if (c.relockAt && (left > 0 || c.state === 'unlocked')) {
        c.countdown.dataset.leftMs = String(left);
        c.countText.textContent = left > 0 ? `Relocks in ${(left / 1000).toFixed(1)} s` : 'Relocking…';
        c.bar.style.width = `${d.open_ms ? (100 * left) / d.open_ms : 0}%`;
        if (!c.countdown.isConnected) c.countSlot.append(c.countdown);
      } else if (c.countdown.isConnected) {
        c.countdown.remove();
      }
      if (c.last) {
        clear(c.lastSlot).append(h('span', { class: 'muted' }, `${fmtAgo(c.last.received_ms)}: `), summary(c.last), ' ', decisionBadge(c.last));
        c.lastSlot.classList.remove('muted');
      } else {
        c.lastSlot.textContent = 'Nothing at this door yet.';
        c.lastSlot.classList.add('muted');
      }
    }

    async function read(c) {
      try {
        const r = await api('GET', `doors/${encodeURIComponent(c.door.name)}`);
        c.state = r.unlocked ? 'unlocked' : 'locked';
        c.error = '';
      } catch (e) {
        c.state = e.status === 503 ? 'offline' : 'error';
        c.error = e.message;
      }
      if (!stopped) render(c);
    }

    // While a door is open: its input each second, until it has locked again after its timer.
    async function watch(c) {
      if (c.watching) return;
      c.watching = true;
      const until = c.relockAt + 10000;
      while (!stopped && Date.now() < until) {
        await new Promise((r) => setTimeout(r, 1000));
        if (stopped) break;
        await read(c);
        if (c.state !== 'unlocked' && Date.now() >= c.relockAt) break;
      }
      c.watching = false;
      c.relockAt = 0;
      if (!stopped) render(c);
    }

    async function open(c) {
      const d = c.door;
      const ok = await confirmDialog(`Open ${d.name}?`,
        `The door unlocks now${d.open_ms ? ` and locks again after ${d.open_ms / 1000} s` : ''}. The opening is journaled under your token's name.`,
        'Open door');
      if (!ok) return;
      c.opening = true;
      render(c);
      try {
        const r = await api('POST', `doors/${encodeURIComponent(d.name)}/open`);
        c.relockAt = Date.now() + (r.relock_ms || 0);
        c.state = 'unlocked';
        toast(`${d.name} opened`);
        c.opening = false;
        render(c);
        watch(c);
      } catch (e) {
        c.opening = false;
        render(c);
        toast(`${d.name}: ${e.message}`, 'error');
      }
    }

    for (const d of doors) {
      const c = { door: d, state: 'reading', el: null, relockAt: 0 };
      cards.set(d.name, c);
      build(c);
      grid.append(c.el);
      read(c);
      // The last look-up or report at the door, from the journal.
      const p = new URLSearchParams({ mac: d.controller, door: String(d.door), kind: 'lookup,door', limit: '1' });
      api('GET', `events/search?${p}`).then((r) => {
        if (r.records.length && (!c.last || c.last.id < r.records[0].id)) { c.last = r.records[0]; render(c); }
      }).catch(() => {});
    }

    const unsubscribe = live.subscribe((r) => {
      if (r.kind !== 'lookup' && r.kind !== 'door') return;
      const n = doorOf(r);
      for (const c of cards.values()) {
        if (c.door.controller === r.mac && c.door.door === n) { c.last = r; render(c); }
      }
    });
    const tick = setInterval(() => { for (const c of cards.values()) if (c.relockAt || c.last) render(c); }, 250);
    const onBack = () => { for (const c of cards.values()) read(c); };
    window.addEventListener('zanthd-reconnected', onBack);
    return () => {
      stopped = true;
      unsubscribe();
      clearInterval(tick);
      window.removeEventListener('zanthd-reconnected', onBack);
      clear(grid);
    };
  },
};
