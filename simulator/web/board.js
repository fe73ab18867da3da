/* SPDX-License-Identifier: MIT */
/* The control board. The panel's engine knows ECMAScript 5 only; every press is one request to
   /control, whose answer is the controller's state, from which the board is drawn. */
(function () {
    'use strict';

    var state = null;
    var sheet = 'signals';
    var pages = { values: 0, files: 0 };
    var downloads = [];
    var refreshMs = 2000;
    var pressed = false;
    var drawn = '';

    var tabs = [['signals', 'Signals'], ['values', 'Values'], ['settings', 'Settings'], ['files', 'Files'],
                ['link', 'Link']];
    var outputs = [['good', 'Green', 'good', 'green'], ['warning', 'Yellow', 'warning', 'yellow'],
                   ['critical', 'Red', 'critical', 'red'], ['buzzer', 'Buzzer', 'sound', 'buzzer']];
    var words = [['off', 'Off'], ['on', 'On'], ['slow', 'Slow'], ['fast', 'Fast']];
    var languages = [['en', 'English'], ['de', 'Deutsch'], ['fr', 'Fran\u00e7ais'], ['it', 'Italiano']];
    var snmpModes = [['1', 'V1'], ['2', 'V2'], ['3', 'V3'], ['4', 'V3 auth'], ['5', 'V3 priv']];

    /* Rows of the settings sheet: name, note, and choices of [text, values that it sets]. */
    var settings = [
        ['Network', 'of the panel', [
            ['Keep', { 'netcfg.varnel': 'off' }],
            ['DHCP', { 'netcfg.varnel': 'on', 'netcfg.dhcp': 'on' }],
            ['Fixed .10', { 'netcfg.varnel': 'on', 'netcfg.dhcp': 'off', 'netcfg.ip': '192.168.1.10' }],
            ['Fixed .20', { 'netcfg.varnel': 'on', 'netcfg.dhcp': 'off', 'netcfg.ip': '192.168.1.20' }]]],
        ['Second DNS', 'server', [
            ['None', { 'netcfg.dns2': '0.0.0.0' }],
            ['9.9.9.9', { 'netcfg.dns2': '9.9.9.9' }]]],
        ['SNMP', 'agent', snmpModes.map(function (mode) { return [mode[1], { 'snmpcfg.version': mode[0] }]; })],
        ['SNMP', 'traps', snmpModes.map(function (mode) { return [mode[1], { 'snmpcfg.cli_mode': mode[0] }]; })],
        ['Traps to', '192.168.1.x', [
            ['.20', { 'snmpcfg.trap_addr1': '192.168.1.20', 'snmpcfg.trap_addr2': '127.0.0.1' }],
            ['.20 and .21', { 'snmpcfg.trap_addr1': '192.168.1.20', 'snmpcfg.trap_addr2': '192.168.1.21' }]]],
        ['Modbus', 'server', [
            ['Off', { 'modbuscfg.tcp_status': 'off' }],
            ['Port 502', { 'modbuscfg.tcp_status': 'on', 'modbuscfg.tcp_port': '502' }],
            ['Port 1502', { 'modbuscfg.tcp_status': 'on', 'modbuscfg.tcp_port': '1502' }]]]
    ];

    /* Keys of the link sheet: text, action, look; "reload" asks for the page again afterwards. */
    var linkKeys = [
        ['Silent 5 s', { 'do': 'silence', seconds: 5 }, 'warn'],
        ['Silent 15 s', { 'do': 'silence', seconds: 15 }, 'warn'],
        ['Silent', { 'do': 'silence' }, 'warn'],
        ['Reboot', { 'do': 'reboot' }, 'warn'],
        ['Reboot, 20 s away', { 'do': 'reboot', seconds: 20 }, 'warn'],
        ['HTTP off 20 s', { 'do': 'http-down', seconds: 20 }, 'warn'],
        ['Burst of 50', { 'do': 'burst', count: 50 }, ''],
        ['Send twice', { 'do': 'duplicate' }, ''],
        ['Wrong checksum', { 'do': 'fault', kind: 'crc' }, ''],
        ['Wrong version', { 'do': 'fault', kind: 'version' }, ''],
        ['Cut frame', { 'do': 'fault', kind: 'truncated' }, ''],
        ['Unknown section', { 'do': 'fault', kind: 'unknown-section' }, ''],
        ['Picture missing', { 'do': 'http', path: '/images/logo.png', fault: 'status', status: 404, count: 1 }, 'warn', 'reload'],
        ['Login refused', { 'do': 'http', path: '/index.html', fault: 'status', status: 401, count: 1 }, 'warn', 'reload'],
        ['Slow page', { 'do': 'http', path: '/index.html', fault: 'slow', ms: 3000, count: 1 }, 'warn', 'reload'],
        ['Page breaks off', { 'do': 'http', path: '/index.html', fault: 'break', count: 1 }, 'warn', 'reload'],
        ['Second controller', { 'do': 'second', count: 10 }, '', 'neighbour'],
        ['All well again', { 'do': 'well' }, 'fine']
    ];

    function byId(id) { return document.getElementById(id); }

    function element(tag, classes, parent, text) {
        var made = document.createElement(tag);
        made.className = classes;
        if (text !== undefined)
            made.appendChild(document.createTextNode(text));
        parent.appendChild(made);
        return made;
    }

    function place(made, left, top, width) {
        made.style.left = left + 'px';
        made.style.top = top + 'px';
        if (width)
            made.style.width = width + 'px';
        return made;
    }

    function key(parent, text, classes, pressed) {
        var made = element('a', 'key ' + classes, parent, text);
        made.onclick = pressed;
        return made;
    }

    function send(action, then) {
        var request = new XMLHttpRequest();
        var query = Object.keys(action).map(function (name) {
            return encodeURIComponent(name) + '=' + encodeURIComponent(action[name]);
        }).join('&');
        request.onload = function () {
            if (request.status !== 200)
                return;
            state = JSON.parse(request.responseText);
            if (!pressed) // a key that is replaced between press and release would miss its click
                draw();
            if (then)
                then();
        };
        request.open(query ? 'POST' : 'GET', '/control' + (query ? '?' + query : ''), true);
        if (query)
            request.setRequestHeader('Content-Type', 'text/plain');
        request.send();
    }

    function set(values) {
        var action = { 'do': 'set' };
        Object.keys(values).forEach(function (path) { action[path] = values[path]; });
        send(action);
    }

    function read(path) {
        var value = path.split('.').reduce(function (object, name) { return object[name]; }, state);
        return value === true ? 'on' : value === false ? 'off' : String(value);
    }

    /* True when the state is what the choice would make it. */
    function holds(values) {
        return Object.keys(values).every(function (path) { return read(path) === values[path]; });
    }

    function row(parent, top, height, name, note, indent) {
        var made = place(element('div', 'row', parent), 18, top);
        made.style.height = (height - 1) + 'px';
        var label = element('div', 'name', made, name);
        place(label, indent, (height - 40) / 2);
        element('small', '', label, note);
        return made;
    }

    function choices(made, height, width, list) {
        var keys = element('div', 'keys', made);
        keys.style.top = ((height - 52) / 2) + 'px';
        list.forEach(function (choice) {
            var one = key(keys, choice[0], holds(choice[1]) ? 'on' : '', function () { set(choice[1]); });
            one.style.width = width + 'px';
        });
    }

    function choice(path, word) {
        var values = {};
        values[path] = word[0];
        return [word[1], values];
    }

    function drawSignals(parent) {
        outputs.forEach(function (output, index) {
            var path = 'gpiostate.' + output[0];
            var word = read(path);
            var made = row(parent, index * 80 + 4, 80, output[1], output[2], 78);
            var picture = element('img', word === 'slow' || word === 'fast' ? word : '', made);
            var dark = word === 'off' && output[0] !== 'buzzer';
            picture.src = '/images/' + (dark ? 'off' : output[3]) + '.png';
            if (word === 'off' && output[0] === 'buzzer')
                picture.className = 'dark';
            place(picture, 0, 10);
            choices(made, 80, 104, words.map(function (one) { return choice(path, one); }));
        });
        var made = row(parent, 336, 78, 'Language', 'of the panel', 0);
        made.style.borderBottom = 'none';
        choices(made, 78, 116, languages.map(function (one) { return choice('devinfo.lang', one); }));
    }

    function shown(value) {
        if (typeof value === 'boolean')
            return value ? 'on' : 'off';
        return typeof value === 'number' && value % 1 !== 0 ? value.toFixed(2) : String(value);
    }

    function step(entry, direction) {
        var values = {};
        var number = Number(entry.value);
        values['core.' + entry.id] = typeof entry.value === 'boolean' ? (direction > 0 ? 'on' : 'off')
                                                                      : String(number + direction);
        set(values);
    }

    function drawValue(parent, entry, slot) {
        var made = element('div', 'value' + (entry.held ? ' held' : ''), parent);
        place(made, 18 + (slot % 2) * 330, 8 + Math.floor(slot / 2) * 70);
        element('div', 'name', made, entry.name);
        element('div', 'number', made, shown(entry.value));
        key(made, '\u2212', 'less', function () { step(entry, -1); });
        key(made, '+', 'more', function () { step(entry, 1); });
    }

    function pager(parent, name, count, redraw) {
        var made = element('div', 'pager', parent);
        function turn(by) {
            return function () {
                pages[name] = (pages[name] + by + count) % count;
                redraw();
            };
        }
        key(made, '\u25c0', 'back', turn(-1));
        key(made, '\u25b6', 'next', turn(1));
        return made;
    }

    function drawValues(parent) {
        var perPage = 10;
        if (!state.core.length) {
            element('div', 'note', parent, 'This controller has no values: it was started without a register mapping.');
            return;
        }
        state.core.slice(pages.values * perPage, (pages.values + 1) * perPage).forEach(function (entry, index) {
            drawValue(parent, entry, index);
        });
        var made = pager(parent, 'values', Math.ceil(state.core.length / perPage), draw);
        key(made, 'All run free', 'free', function () { send({ 'do': 'release' }); });
    }

    function drawSettings(parent) {
        settings.forEach(function (entry, index) {
            var made = row(parent, index * 70 + 2, 70, entry[0], entry[1], 0);
            choices(made, 70, entry[2].length === 5 ? 96 : entry[2].length > 2 ? 122 : 150, entry[2]);
        });
    }

    function drawFiles() {
        var parent = byId('downloads');
        var perPage = 12;
        var count = Math.max(1, Math.ceil(downloads.length / perPage));
        parent.innerHTML = '';
        parent.className = 'grid';
        downloads.slice(pages.files * perPage, (pages.files + 1) * perPage).forEach(function (entry, index) {
            var made = element('a', 'key', parent, entry.title);
            made.href = '/download/' + entry.path;
            place(made, 18 + (index % 3) * 221, 10 + Math.floor(index / 3) * 58);
        });
        var made = pager(parent, 'files', count, drawFiles);
        made.style.top = '248px';
        made.appendChild(document.createTextNode((pages.files + 1) + ' / ' + count));
    }

    function drawLink(parent) {
        parent.className = 'sheet grid' + (sheet === 'link' ? ' on' : '');
        linkKeys.forEach(function (linkKey, index) {
            if (linkKey[3] === 'neighbour' && !state.neighbour)
                return;
            place(key(parent, linkKey[0], linkKey[2], function () {
                send(linkKey[1], linkKey[3] === 'reload' ? function () { location.reload(); } : null);
            }), 18 + (index % 3) * 221, 12 + Math.floor(index / 3) * 68);
        });
    }

    function drawChips() {
        var chips = byId('chips');
        chips.innerHTML = '';
        element('span', state.silent ? 'bad' : 'good', chips, state.silent ? 'silent' : 'sending');
        element('span', '', chips, 'frame ' + state.sequence);
        element('span', '', chips, 'build ' + state.devinfo.swbuild);
    }

    function drawTabs() {
        var list = byId('tabs');
        list.innerHTML = '';
        tabs.forEach(function (tab) {
            element('a', tab[0] === sheet ? 'on' : '', list, tab[1]).onclick = function () { show(tab[0]); };
        });
    }

    /* What the sheet shows; the same text means that nothing has to be drawn again. */
    function appearance() {
        var parts = [sheet, pages.values, state.netcfg, state.snmpcfg, state.modbuscfg, state.gpiostate, state.devinfo];
        return JSON.stringify(sheet === 'values' ? parts.concat(state.core) : parts);
    }

    function draw() {
        if (!state)
            return;
        drawChips();
        if (appearance() === drawn)
            return;
        drawn = appearance();
        drawTabs();
        var painters = { signals: drawSignals, values: drawValues, settings: drawSettings, link: drawLink };
        tabs.forEach(function (tab) {
            var parent = byId(tab[0]);
            parent.className = 'sheet' + (tab[0] === sheet ? ' on' : '');
            if (tab[0] !== sheet || tab[0] === 'files')
                return; // the form keeps the chosen file only while it is left alone
            parent.innerHTML = '';
            painters[tab[0]](parent);
        });
    }

    function show(name) {
        sheet = name;
        draw();
    }

    function loadDownloads() {
        var request = new XMLHttpRequest();
        request.onload = function () {
            if (request.status === 200)
                downloads = JSON.parse(request.responseText);
            drawFiles();
        };
        request.open('GET', '/downloads', true);
        request.send();
    }

    byId('file').onchange = function () {
        var path = this.value.split(/[\\\/]/);
        byId('picked').textContent = path[path.length - 1] || 'Choose a file';
    };
    document.onmousedown = function () { pressed = true; };
    document.onmouseup = function () { pressed = false; };
    tabs.forEach(function (tab) {
        if (location.hash === '#' + tab[0])
            sheet = tab[0];
    });
    loadDownloads();
    send({});
    setInterval(function () { send({}); }, refreshMs);
}());
