// The phone's screen in a browser. A client of the journal daemon over its WebSocket
// (ws://HOST/ws), speaking the client protocol of docs/protocol.md with one message per text
// frame: it subscribes to the journal's observer messages and to the switch link's messages,
// reads every list, and changes the page at each message, without reload. The browser's
// DOMParser reads the XML; requests are built here with their texts escaped. No library.
'use strict';

(() => {
  // ---- The lists and how the protocol names them --------------------------------------------

  const LISTS = {
    missed: {
      title: 'Missed calls', item: 'missedCall', get: 'getMissedCallList', deleteOne: 'deleteMissedCall',
      deleteAll: 'deleteMissedCallList', update: 'missedCallsUpdate',
    },
    received: {
      title: 'Received calls', item: 'receivedCall', get: 'getReceivedCallList', deleteOne: 'deleteReceivedCall',
      deleteAll: 'deleteReceivedCallList', update: 'receivedCallsUpdate',
    },
    dialled: {
      title: 'Dialled calls', item: 'dialledCall', get: 'getDialledCallList', deleteOne: 'deleteDialledCall',
      deleteAll: 'deleteDialledCallList', update: 'dialledCallsUpdate',
    },
    forwarded: {
      title: 'Forwarded calls', item: 'forwardedCall', get: 'getForwardedCallList', deleteOne: 'deleteForwardedCall',
      deleteAll: 'deleteForwardedCallList', update: 'forwardedCallsUpdate',
    },
    callbacks: {
      title: 'Callbacks', item: 'callBack', get: 'getCallBackList', deleteOne: 'deleteCallBack',
      deleteAll: 'deleteCallBackList', update: 'callBacksUpdate',
    },
  };
  const LIST_NAMES = Object.keys(LISTS);
  // The lists the history is made of, in the order the command-line client takes them: callbacks
  // are requests open at the switch, not calls.
  const CALL_LISTS = ['missed', 'received', 'dialled', 'forwarded'];
  const VIEWS = [...LIST_NAMES, 'history'];
  const ACTION_NEW = 0, ACTION_MERGED = 1, ACTION_DELETED = 2, ACTION_LIST_CHANGED = 3;
  const NUMBER_TYPES = ['', 'work', 'mobile', 'home', 'other'];
  const PRESENTATION_RESTRICTED = 2;
  const CALLBACK_STATES = ['', 'pending', 'ready'];
  const MONTHS = ['Jan', 'Feb', 'Mar', 'Apr', 'May', 'Jun', 'Jul', 'Aug', 'Sep', 'Oct', 'Nov', 'Dec'];

  // ---- What the page knows ------------------------------------------------------------------

  const state = {
    lists: Object.fromEntries(LIST_NAMES.map((name) => [name, []])),
    loaded: Object.fromEntries(LIST_NAMES.map((name) => [name, false])),
    unviewedMissed: 0,  // the journal's count of missed entries not viewed
    callbacks: 0,       // the journal's count of callbacks
    link: null,         // the switch link's last message, null while not known
    connection: 'connecting',
    view: 'missed',
    open: new Set(),    // "list:entryId" of the rows showing their occurrences
    arrived: new Map(), // "list:entryId" -> when it came to the front (highlighted a moment)
    search: '',
  };

  // ---- XML ----------------------------------------------------------------------------------

  const XML_ESCAPES = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;', "'": '&apos;' };

  function escapeXml(text) {
    return String(text).replace(/[&<>"']/g, (c) => XML_ESCAPES[c]);
  }

  function journalRequest(method, entryIds = []) {
    const ids = entryIds.map((id) => `<entryId>${escapeXml(id)}</entryId>`).join('');
    return `<journalRequest><method>${escapeXml(method)}</method>${ids}</journalRequest>`;
  }

  function mgmtRequest(operation) {
    return `<mgmtRequest><operation>${escapeXml(operation)}</operation></mgmtRequest>`;
  }

  // The document, or null when the text is not well-formed XML.
  function parseXml(text) {
    const doc = new DOMParser().parseFromString(text, 'application/xml');
    return doc.getElementsByTagName('parsererror').length > 0 ? null : doc;
  }

  function child(element, name) {
    for (const c of element.children) if (c.localName === name) return c;
    return null;
  }

  function childText(element, name) {
    const c = child(element, name);
    return c ? c.textContent : '';
  }

  const flag = (text) => text === 'true' || text === '1';
  const number = (text) => (/^-?\d+$/.test(text) ? Number(text) : 0);

  function readOccurrence(callInfo) {
    const at = (name) => callInfo.getAttribute(name) || '';
    return {
      number: at('number'), numberType: number(at('numberType')), timeDate: at('timeDate'),
      numberPresentation: number(at('numberPresentation')), duration: at('duration'),
      connectedNumber: at('connectedNumber'), connectedSurname: at('connectedSurname'),
      connectedFirstname: at('connectedFirstname'), deflectNumber: at('deflectNumber'),
      deflectName: at('deflectName'), completedElsewhere: flag(at('completedElsewhere')),
      dialledNumber: at('dialledNumber'), isFeatureAccessCode: flag(at('isFeatureAccessCode')),
    };
  }

  // One entry from its item element (<missedCall>, ..., <callBack>).
  function readItem(element) {
    const item = {
      kind: element.localName, uniqueId: childText(element, 'uniqueId'), entryId: childText(element, 'entryId'),
      surname: childText(element, 'surname'), firstname: childText(element, 'firstname'),
      viewed: flag(childText(element, 'viewed')), infos: [],
    };
    if (item.kind === 'callBack') {
      item.number = childText(element, 'number');
      item.numberType = number(childText(element, 'numberType'));
      item.timeDate = childText(element, 'timeDate');
      item.callBackState = number(childText(element, 'callBackState'));
      return item;
    }
    const infos = child(element, 'callInfos');
    if (infos) for (const c of infos.children) if (c.localName === 'callInfo') item.infos.push(readOccurrence(c));
    return item;
  }

  // An entry from an observer message's escaped item body; null when there is none.
  function readItemText(text) {
    const doc = text ? parseXml(text) : null;
    return doc ? readItem(doc.documentElement) : null;
  }

  // ---- The connection -----------------------------------------------------------------------

  let socket = null;
  let pending = [];  // replies awaited, in the order the requests were sent
  let retryDelay = 1000;

  function connect() {
    const scheme = location.protocol === 'https:' ? 'wss://' : 'ws://';
    const ws = new WebSocket(scheme + location.host + '/ws');
    socket = ws;
    // While the daemon is away the page says so until it is back, through every new attempt.
    if (state.connection !== 'disconnected') setConnection('connecting');
    ws.onopen = () => {
      retryDelay = 1000;
      setConnection('connected');
      start();
    };
    ws.onmessage = (event) => {
      if (typeof event.data === 'string') received(event.data);
    };
    ws.onclose = () => {
      if (socket !== ws) return;
      socket = null;
      for (const request of pending) request.reject(new Error('the connection to the daemon ended'));
      pending = [];
      state.link = null;
      setConnection('disconnected');
      setTimeout(connect, retryDelay);
      retryDelay = Math.min(retryDelay * 2, 10000);
    };
  }

  // Sends one message; resolves with the reply: {root, doc} (doc null for an empty reply).
  function request(xml) {
    return new Promise((resolve, reject) => {
      if (!socket || socket.readyState !== WebSocket.OPEN) {
        reject(new Error('not connected to the daemon'));
        return;
      }
      pending.push({ resolve, reject });
      socket.send(xml);
    });
  }

  // Observer and link messages are told from replies by their root element.
  function received(text) {
    const doc = text === '' ? null : parseXml(text);
    const root = doc ? doc.documentElement.localName : '';
    if (root === 'journalEvent') return journalEvent(doc.documentElement);
    if (root === 'hostEvent') return hostEvent(doc.documentElement);
    const waiting = pending.shift();
    if (waiting) waiting.resolve({ root, doc });
    else showError(`The daemon sent a message nobody asked for: ${text.slice(0, 200)}`);
  }

  const resultOf = (reply) => (reply.doc ? childText(reply.doc.documentElement, 'result') : '');

  // Subscribes, then reads every list; the replies come in this order.
  async function start() {
    try {
      const [subscribed, linked] = await Promise.all([
        request(journalRequest('subscribe')), request(mgmtRequest('subscribe-link')),
        ...LIST_NAMES.map((name) => readList(name)),
      ]);
      if (resultOf(subscribed) !== 'true')
        showError(`The journal refused the subscription (answer: ${resultOf(subscribed) || 'none'}); the page will not follow changes`);
      if (resultOf(linked) !== 'ok')
        showError(`The daemon refused to report the switch link: ${linked.doc ? childText(linked.doc.documentElement, 'reason') : 'no answer'}`);
    } catch (error) {
      if (state.connection === 'connected') showError(error.message);
    }
  }

  async function readList(name) {
    const reply = await request(journalRequest(LISTS[name].get));
    const result = resultOf(reply);
    if (result !== 'true') {
      showError(`The journal answered "${result || 'nothing'}" when asked for the ${name} list`);
      return reply;
    }
    const entries = [];
    for (const entry of reply.doc.documentElement.children) {
      if (entry.localName !== 'entry') continue;
      const item = entry.firstElementChild ? readItem(entry.firstElementChild) : readItemText(entry.textContent);
      if (item) entries.push(item);
    }
    state.lists[name] = entries;
    state.loaded[name] = true;
    if (name === 'callbacks') state.callbacks = entries.length;
    render();
    return reply;
  }

  // ---- Observer and link messages -----------------------------------------------------------

  function journalEvent(message) {
    const operation = childText(message, 'operation');
    if (operation === 'missedCallsCountUpdate') {
      state.unviewedMissed = number(childText(message, 'count'));
      checkViewedMarks();
      return render();
    }
    if (operation === 'callBacksCountUpdate') {
      state.callbacks = number(childText(message, 'count'));
      return render();
    }
    const name = LIST_NAMES.find((n) => LISTS[n].update === operation);
    if (!name) return;
    const action = number(childText(message, 'action'));
    const id = childText(message, 'id');
    if (action === ACTION_LIST_CHANGED) return readList(name).catch(() => {});
    if (action === ACTION_DELETED) {
      // The id names the entry: its entry id, or its unique id when the journal removed it itself.
      if (!id) return readList(name).catch(() => {});
      state.lists[name] = state.lists[name].filter((e) => e.entryId !== id && e.uniqueId !== id);
      return render();
    }
    if (action === ACTION_NEW || action === ACTION_MERGED) {
      const item = readItemText(childText(message, 'entry'));
      if (!item || !item.entryId) return readList(name).catch(() => {});
      // The entry comes to the front; the id, when given, is the unique id of the entry it
      // replaces (merged) or of the one the list's limit pushed out.
      state.lists[name] = [item, ...state.lists[name].filter(
        (e) => e.entryId !== item.entryId && !(id && e.uniqueId === id))];
      state.arrived.set(`${name}:${item.entryId}`, Date.now());
      render();
    }
  }

  // The count tells when entries were marked viewed (by this page or another client): the list
  // is read again when its "new" marks no longer agree with the count.
  let viewedCheck = null;
  function checkViewedMarks() {
    if (viewedCheck || !state.loaded.missed) return;
    viewedCheck = setTimeout(() => {
      viewedCheck = null;
      if (unviewedInList() !== state.unviewedMissed) readList('missed').catch(() => {});
    }, 150);
  }

  const unviewedInList = () => state.lists.missed.filter((e) => !e.viewed).length;

  function hostEvent(message) {
    if (childText(message, 'operation') !== 'linkState') return;
    state.link = {
      up: childText(message, 'link') === 'true', since: childText(message, 'since'),
      reason: childText(message, 'reason'), monitor: childText(message, 'monitor') === 'true',
      switchAddress: childText(message, 'switch'),
    };
    render();
  }

  // ---- Actions ------------------------------------------------------------------------------

  // Sends a request that answers a boolean; an answer other than true is shown.
  async function act(xml, refusal) {
    try {
      const reply = await request(xml);
      const result = resultOf(reply);
      if (result === 'true') return true;
      // A well-formed request is answered false or failure when the journal refuses it.
      showError(result === 'false' || result === 'failure' ? refusal : `${refusal} (the daemon answered "${result || 'nothing'}")`);
    } catch (error) {
      showError(`${refusal}: ${error.message}`);
    }
    return false;
  }

  async function markAllViewed() {
    const unviewed = state.lists.missed.filter((e) => !e.viewed).map((e) => e.entryId);
    const ids = unviewed.length ? unviewed : state.lists.missed.map((e) => e.entryId);
    if (!ids.length) return;
    await act(journalRequest('setMissedCallListAsViewed', ids), 'The journal did not mark the missed calls viewed');
    checkViewedMarks();
  }

  async function deleteEntry(name, item) {
    const who = partyName(item) || numberOf(item) || 'this party';
    if (!(await confirmAction(`Delete the ${name} entry of ${who}?`, 'Delete'))) return;
    await act(journalRequest(LISTS[name].deleteOne, [item.entryId]),
      `The journal did not delete the ${name} entry of ${who}: it is gone already`);
  }

  async function deleteList(name) {
    const ids = state.lists[name].map((e) => e.entryId);
    if (!ids.length) return;
    const what = `${ids.length} ${ids.length === 1 ? 'entry' : 'entries'}`;
    if (!(await confirmAction(`Delete all ${what} of the ${name} list?`, 'Delete all'))) return;
    await act(journalRequest(LISTS[name].deleteAll, ids), `The journal did not empty the ${name} list`);
  }

  // A question in an in-page dialog; resolves true when confirmed.
  function confirmAction(question, confirmLabel) {
    const dialog = $('confirm');
    $('confirm-text').textContent = question;
    $('confirm-ok').textContent = confirmLabel;
    dialog.returnValue = '';
    return new Promise((resolve) => {
      dialog.addEventListener('close', () => resolve(dialog.returnValue === 'ok'), { once: true });
      dialog.showModal();
    });
  }

  function selectView(view, byUser) {
    if (!VIEWS.includes(view)) return;
    state.view = view;
    if (byUser) history.replaceState(null, '', `#${view}`);
    render();
    // Opening the missed list is looking at the missed calls, as on the phone.
    if (byUser && view === 'missed' && (state.unviewedMissed > 0 || unviewedInList() > 0)) markAllViewed();
  }

  // ---- Texts as a person reads them ---------------------------------------------------------

  const $ = (id) => document.getElementById(id);

  function partyName(item) {
    return [item.firstname, item.surname].filter((t) => t).join(' ');
  }

  function numberOf(item) {
    if (item.kind === 'callBack') return item.number;
    const newest = item.infos[0];
    if (!newest) return '';
    if (newest.isFeatureAccessCode && newest.dialledNumber) return newest.dialledNumber;
    return newest.number;
  }

  const withheld = (info) => !info.number && info.numberPresentation === PRESENTATION_RESTRICTED;

  function localDay(date) {
    const two = (n) => String(n).padStart(2, '0');
    return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())}`;
  }

  // "Today 14:20", "Yesterday 09:05", "10 Mar 2026 17:35" for a "YYYY-MM-DDThh:mm:ss" text; with
  // the seconds when asked ("Today 14:20:05").
  function whenText(timeDate, withSeconds = false) {
    const m = /^(\d{4})-(\d{2})-(\d{2})T(\d{2}):(\d{2})(:\d{2})?/.exec(timeDate || '');
    if (!m) return timeDate || '';
    const day = `${m[1]}-${m[2]}-${m[3]}`;
    const clock = `${m[4]}:${m[5]}${withSeconds && m[6] ? m[6] : ''}`;
    const now = new Date();
    const yesterday = new Date(now.getFullYear(), now.getMonth(), now.getDate() - 1);
    if (day === localDay(now)) return `Today ${clock}`;
    if (day === localDay(yesterday)) return `Yesterday ${clock}`;
    return `${Number(m[3])} ${MONTHS[Number(m[2]) - 1] || m[2]} ${m[1]} ${clock}`;
  }

  function numberWithType(number, type) {
    const typeText = NUMBER_TYPES[type] || '';
    return typeText ? `${number} · ${typeText}` : number;
  }

  function connectedParty(info) {
    const name = [info.connectedFirstname, info.connectedSurname].filter((t) => t).join(' ');
    return [name, info.connectedNumber].filter((t) => t).join(' ');
  }

  function deflectingParty(info) {
    return [info.deflectName, info.deflectNumber].filter((t) => t).join(' ');
  }

  // ---- Rendering ----------------------------------------------------------------------------

  function el(tag, attributes = {}, ...children) {
    const e = document.createElement(tag);
    for (const [key, value] of Object.entries(attributes)) {
      if (value === undefined || value === null || value === false) continue;
      if (key === 'text') e.textContent = value;
      else e.setAttribute(key, value === true ? '' : value);
    }
    for (const c of children) if (c !== null && c !== undefined && c !== '') e.append(c);
    return e;
  }

  function render() {
    for (const [key, when] of state.arrived) if (Date.now() - when > 3000) state.arrived.delete(key);
    renderStates();
    renderTabs();
    renderView();
  }

  function setConnection(connection) {
    state.connection = connection;
    document.body.classList.toggle('offline', connection !== 'connected');
    render();
  }

  function renderStates() {
    const connection = $('connection');
    connection.dataset.state = state.connection;
    connection.textContent = {
      connecting: 'connecting…', connected: 'connected', disconnected: 'disconnected: trying again',
    }[state.connection];
    const link = $('link');
    const news = state.link;
    if (!news) {
      link.dataset.state = 'unknown';
      link.textContent = 'switch: not known';
      link.title = '';
      return;
    }
    const since = /T(\d{2}:\d{2}:\d{2})/.exec(news.since);
    const sinceText = since ? ` since ${since[1]}` : '';
    if (news.switchAddress === 'none') {
      link.dataset.state = 'down';
      link.textContent = 'no switch configured';
    } else if (news.up) {
      link.dataset.state = 'up';
      link.textContent = `switch up${sinceText}`;
    } else {
      link.dataset.state = 'down';
      link.textContent = `switch down${sinceText}${news.reason ? `: ${news.reason}` : ''}`;
    }
    link.title = `${news.switchAddress}${news.up ? (news.monitor ? ', monitor running' : ', monitor not running') : ''}`;
  }

  function renderTabs() {
    for (const tab of document.querySelectorAll('[role="tab"]')) {
      const selected = tab.dataset.view === state.view;
      tab.setAttribute('aria-selected', selected ? 'true' : 'false');
      tab.tabIndex = selected ? 0 : -1;
    }
    $('panel').setAttribute('aria-labelledby', `tab-${state.view}`);
    const badge = $('missed-badge');
    badge.textContent = String(state.unviewedMissed);
    badge.hidden = state.unviewedMissed === 0;
    badge.setAttribute('aria-label', `${state.unviewedMissed} not viewed`);
    $('callbacks-count').textContent = String(state.callbacks);
    $('callbacks-count').classList.toggle('zero', state.callbacks === 0);
  }

  function renderView() {
    const view = state.view;
    const isList = view !== 'history';
    $('view-title').textContent = isList ? LISTS[view].title : 'History';
    $('search-box').hidden = isList;
    $('mark-viewed').hidden = view !== 'missed';
    $('mark-viewed').disabled = state.unviewedMissed === 0 && unviewedInList() === 0;
    $('delete-list').hidden = !isList;
    $('delete-list').disabled = !isList || state.lists[view].length === 0;
    const rows = isList ? state.lists[view].map((item, i) => entryRow(view, item, i)) : historyRows();
    const list = $('entries');
    list.className = isList ? `entries ${view}` : 'entries history';
    keepingFocus(list, () => list.replaceChildren(...rows));
    $('empty').hidden = rows.length > 0;
    $('empty').textContent = isList || !state.search ? 'No calls.' : 'No call matches the search.';
  }

  // Rebuilding the rows keeps the keyboard focus on the control it was on.
  function keepingFocus(container, rebuild) {
    const focused = document.activeElement;
    const key = focused && container.contains(focused) ? focused.dataset.focusKey : null;
    rebuild();
    if (!key) return;
    const again = [...container.querySelectorAll('[data-focus-key]')].find((e) => e.dataset.focusKey === key);
    (again || $('panel')).focus({ preventScroll: true });
  }

  function entryRow(name, item, index) {
    const key = `${name}:${item.entryId}`;
    const isOpen = state.open.has(key);
    const arrived = state.arrived.get(key);
    const li = el('li', { class: 'entry', 'data-entry-id': item.entryId });
    if (arrived && Date.now() - arrived < 2500) li.classList.add('arrived');
    if (name === 'missed' && !item.viewed) li.classList.add('unviewed');
    const summary = entrySummary(name, item);
    const detailsId = `occurrences-${name}-${index}`;
    let head;
    if (name === 'callbacks') {
      head = el('div', { class: 'entry-head' }, ...summary);
    } else {
      head = el('button', {
        type: 'button', class: 'entry-head', 'aria-expanded': isOpen ? 'true' : 'false', 'aria-controls': detailsId,
        'data-focus-key': `open:${key}`,
      }, ...summary);
      head.addEventListener('click', () => {
        if (state.open.has(key)) state.open.delete(key);
        else state.open.add(key);
        render();
      });
    }
    const who = partyName(item) || numberOf(item) || 'unknown party';
    const remove = el('button', {
      type: 'button', class: 'delete', 'aria-label': `Delete ${who}`, title: 'Delete this entry',
      'data-focus-key': `delete:${key}`, text: '✕',
    });
    remove.addEventListener('click', () => deleteEntry(name, item));
    li.append(head, remove);
    if (name !== 'callbacks') li.append(occurrencesTable(name, item, detailsId, isOpen));
    return li;
  }

  // Name (or number), number and its type, time, count, and what the list adds.
  function entrySummary(name, item) {
    const newest = item.kind === 'callBack' ? item : item.infos[0] || {};
    const number = numberOf(item);
    const party = partyName(item);
    const shownNumber = withheld(newest) ? 'withheld' : number;
    const parts = [
      el('span', { class: 'who', text: party || shownNumber || 'unknown' }),
      el('span', { class: 'number', text: numberWithType(shownNumber, newest.numberType) }),
      el('time', { class: 'when', datetime: newest.timeDate, title: newest.timeDate, text: whenText(newest.timeDate) }),
    ];
    const meta = [];
    const calls = item.infos.length;
    if (calls > 1) meta.push(el('span', { class: 'calls', title: `${calls} calls`, text: `(${calls})` }));
    if (name === 'missed' && !item.viewed) meta.push(el('span', { class: 'new', text: 'new' }));
    if (name === 'forwarded' && connectedParty(newest))
      meta.push(el('span', { class: 'detail target', text: `→ ${connectedParty(newest)}` }));
    if ((name === 'received' || name === 'dialled') && newest.duration)
      meta.push(el('span', { class: 'detail duration', title: 'duration', text: newest.duration }));
    if (name === 'callbacks' && CALLBACK_STATES[item.callBackState])
      meta.push(el('span', { class: 'detail', text: CALLBACK_STATES[item.callBackState] }));
    parts.push(el('span', { class: 'meta' }, ...meta));
    return parts;
  }

  // Every occurrence with its time, number, duration, connected and deflecting parties; a column
  // no occurrence of the entry fills is left out.
  function occurrencesTable(name, item, id, isOpen) {
    if (!isOpen) return el('div', { class: 'occurrences', id, hidden: true });  // built when opened
    const columns = [
      ['Time', (info) => el('time', { datetime: info.timeDate, text: whenText(info.timeDate, true) }), true],
      ['Number', (info) => (withheld(info) ? 'withheld' : numberWithType(info.number, info.numberType)), true],
      ['Duration', (info) => info.duration, name !== 'missed'],
      ['Connected', connectedParty],
      ['Deflected by', deflectingParty],
      ['Note', (info) => [info.completedElsewhere ? 'answered elsewhere' : '',
        info.isFeatureAccessCode && info.dialledNumber ? `dialled ${info.dialledNumber}` : ''].filter((t) => t).join(', ')],
    ].filter(([, cell, always]) => always || item.infos.some((info) => cell(info)));
    const rows = item.infos.map((info) => el('tr', { class: 'occurrence' },
      ...columns.map(([head, cell]) => el('td', { 'data-label': head }, cell(info)))));
    const table = el('table', { class: 'occurrences-table' },
      el('thead', {}, el('tr', {}, ...columns.map(([head]) => el('th', { scope: 'col', text: head })))),
      el('tbody', {}, ...rows));
    return el('div', { class: 'occurrences', id }, table);
  }

  // Every call of the four call lists, newest first (as `calljournal history`), filtered by the
  // search text: the number holds it, or the name holds it in any case.
  function historyRows() {
    const records = [];
    for (const name of CALL_LISTS)
      for (const item of state.lists[name])
        for (const info of item.infos) records.push({ name, item, info });
    records.sort((a, b) => (a.info.timeDate < b.info.timeDate ? 1 : a.info.timeDate > b.info.timeDate ? -1 : 0));
    const text = state.search.trim();
    const lowered = text.toLowerCase();
    const matching = records.filter(({ item, info }) => !text || info.number.includes(text) ||
      partyName(item).toLowerCase().includes(lowered));
    return matching.map(({ name, item, info }) => {
      const who = partyName(item);
      const number = withheld(info) ? 'withheld' : info.number;
      let detail = info.duration;
      if (name === 'forwarded' && connectedParty(info)) detail = `→ ${connectedParty(info)}`;
      return el('li', { class: `call ${name}`, 'data-entry-id': item.entryId, 'data-kind': name },
        el('time', { class: 'when', datetime: info.timeDate, title: info.timeDate, text: whenText(info.timeDate) }),
        el('span', { class: `kind ${name}`, text: name }),
        el('span', { class: 'who', text: who || number || 'unknown' }),
        el('span', { class: 'number', text: numberWithType(number, info.numberType) }),
        el('span', { class: 'detail', text: detail }));
    });
  }

  function showError(text) {
    const box = $('errors');
    const close = el('button', { type: 'button', class: 'dismiss', 'aria-label': 'Dismiss', text: '✕' });
    const message = el('div', { class: 'error' }, el('span', { class: 'error-text', text }), close);
    close.addEventListener('click', () => message.remove());
    box.append(message);
    while (box.children.length > 5) box.firstElementChild.remove();
  }

  // ---- Wiring -------------------------------------------------------------------------------

  function tabKeys(event) {
    const tabs = [...document.querySelectorAll('[role="tab"]')];
    const at = tabs.indexOf(document.activeElement);
    if (at < 0) return;
    const next = { ArrowRight: at + 1, ArrowLeft: at - 1, Home: 0, End: tabs.length - 1 }[event.key];
    if (next === undefined) return;
    event.preventDefault();
    tabs[(next + tabs.length) % tabs.length].focus();
  }

  function init() {
    for (const tab of document.querySelectorAll('[role="tab"]'))
      tab.addEventListener('click', () => selectView(tab.dataset.view, true));
    document.querySelector('[role="tablist"]').addEventListener('keydown', tabKeys);
    $('mark-viewed').addEventListener('click', () => markAllViewed());
    $('delete-list').addEventListener('click', () => deleteList(state.view));
    $('search').addEventListener('input', (event) => {
      state.search = event.target.value;
      render();
    });
    // The address names the list shown (#received, #history, ...): a link or a bookmark opens it.
    const fromAddress = location.hash.slice(1);
    if (VIEWS.includes(fromAddress)) state.view = fromAddress;
    window.addEventListener('hashchange', () => selectView(location.hash.slice(1), false));
    // "Today" becomes "Yesterday" at midnight; the arrival highlight ends.
    setInterval(render, 30000);
    render();
    connect();
  }

  init();
})();
