// Events that the tests ask the page about: a document whose macro reaches out, values that a page must
// not believe, and as many ordinary events as are wanted. The same call always gives the same.

const uid = (/** @type {number} */ number) => `5f0ca001-0000-4000-8000-${String(number).padStart(12, '0')}`;

let sequence = 500000;

/**
 * @param {string} time
 * @param {string} action
 * @param {number} type
 * @param {any} actor
 * @param {any} target
 */
function record(time, action, type, actor, target) {
  return {
    artifacts: { actor, target }, action: [action], begin_time: { value: time }, type_id: { value: [type] },
    correlation_uid: { value: [actor.uid.value[0]] }, seq_num: sequence++, source: { computer: 'DESK17.example.org' }, unmapped: { User: 'EXAMPLE\\anna' },
  };
}

/** @param {string} path @param {number} pid @param {string} [command] */
function process(path, pid, command = path) {
  return { object_type: 'process', path: { value: [path] }, cmd_line: { value: [command] }, pid: { value: [pid] }, uid: { value: [uid(pid)] } };
}

const winword = process('C:\\Program Files\\Microsoft Office\\root\\Office16\\WINWORD.EXE', 4100, '"WINWORD.EXE" /n "C:\\Users\\anna\\Downloads\\invoice_8841.docm"');
const powershell = process('C:\\Windows\\System32\\WindowsPowerShell\\v1.0\\powershell.exe', 4212, 'powershell.exe -nop -w hidden -enc SQBFAFgAIAAoAE4AZQB3AC0ATwBiAGoA');
const regsvr = process('C:\\Windows\\System32\\regsvr32.exe', 4290, 'regsvr32.exe /s C:\\Users\\anna\\AppData\\Roaming\\upd.dll');
const explorer = process('C:\\Windows\\explorer.exe', 3004);

const network = (/** @type {string} */ address, /** @type {number} */ port) => ({
  object_type: 'network', src_ip: { value: ['10.1.4.17'] }, src_port: { value: [51422] }, dst_ip: { value: [address] }, dst_port: { value: [port] }, protocol_id: { value: [6] },
});
const runValue = (/** @type {string} */ name, /** @type {string} */ data) => ({
  object_type: 'reg_value', path: { value: [`HKU\\S-1-5-21-1004336348-1177238915-682003330-1001\\Software\\Microsoft\\Windows\\CurrentVersion\\Run\\${name}`] },
  name: { value: [name] }, type_id: 1, data: { value: [data] },
});

/** What a macro did. */
export function incident() {
  const on = (/** @type {string} */ time) => `2023-07-20T${time}Z`;
  return [
    record(on('08:02:11.120'), 'launch', 8001, explorer, winword),
    record(on('08:02:19.843'), 'launch', 8001, winword, powershell),
    record(on('08:02:21.007'), 'connect', 8007, powershell, network('203.0.113.77', 443)),
    record(on('08:02:22.415'), 'create', 8002, powershell, { object_type: 'file', path: { value: ['C:\\Users\\anna\\AppData\\Roaming\\upd.dll'] } }),
    record(on('08:02:23.090'), 'launch', 8001, powershell, regsvr),
    record(on('08:02:24.318'), 'set', 8006, regsvr, runValue('OneDriveUpdate', 'regsvr32.exe /s C:\\Users\\anna\\AppData\\Roaming\\upd.dll')),
    record(on('08:02:24.902'), 'connect', 8007, regsvr, network('198.51.100.9', 8443)),
  ];
}

/** What a service tells of a time in which it was not there. */
export function gap() {
  const [from, until] = ['2021-02-01T00:00:00.000Z', '2021-06-30T00:00:00.000Z'];
  return {
    artifacts: { target: { object_type: 'etw', source: { facility: { value: ['zel'] } } } }, action: ['generic'], begin_time: { value: from },
    type_id: { value: [8032] }, seq_num: 7, unmapped: { gap: 'service not running', from, until, events: 0, end: 'without warning' },
  };
}

/** Fits one event of the incident. */
export const rule = `title: a macro starts a shell
id: 5f0ca001-0000-4000-8000-000000000001
level: high
logsource: { product: windows, category: process_creation }
detection: { selection: { ParentImage|endswith: WINWORD.EXE }, condition: selection }
`;

export const script = '<script>document.title="taken"</script><img src=x onerror="document.title=\'taken\'">';
export const turned = 'C:\\Temp\\report_\u202efdp.exe';

/** Values that would do harm where text is taken for markup, or would mislead. */
export function hostile() {
  const shell = process(turned, 6001, `cmd.exe /c echo "${script}" 'quoted' & שלום עולם مرحبا`);
  return [
    record('2023-07-21T10:00:00.000Z', 'launch', 8001, shell, process(`C:\\Temp\\"quo'ted".exe`, 6002, `run.exe ${'A'.repeat(40000)} ${script}`)),
    record('2023-07-21T10:00:01.000Z', 'set', 8006, shell, runValue(`x' or 1=1 --`, script)),
  ];
}

const programs = ['svchost.exe', 'chrome.exe', 'backup.exe', 'searchindexer.exe', 'msmpeng.exe', 'teams.exe'];

/**
 * Ordinary events, a third of a second apart on the whole.
 * @param {number} count
 * @param {Date} from
 */
export function* ordinary(count, from) {
  for (let index = 0; index < count; index++) {
    const time = new Date(Number(from) + index * 333).toISOString();
    const actor = process(`C:\\Windows\\System32\\${programs[(index * 7) % programs.length]}`, 1000 + (index % 97));
    const kind = index % 10;
    if (kind < 5) yield record(time, 'create', 8002, actor, { object_type: 'file', path: { value: [`C:\\ProgramData\\cache\\${index % 4096}\\part${index}.dat`] } });
    else if (kind < 8) yield record(time, 'connect', 8007, actor, network(`10.2.${index % 250}.${(index * 3) % 250}`, 443));
    else yield record(time, 'launch', 8001, actor, process(`C:\\Program Files\\Tools\\tool${index % 31}.exe`, 9000 + (index % 900)));
  }
}
