// What the modules of the page share with the server and with D3, for the checker of their types.
declare var d3: any;

interface Row { position: string; key: string; cells: any[]; time?: string; gap?: Gap; }
interface Gap { reason: string; from: string; until: string; events?: number | null; }
interface Bucket { at: string; counts: Record<string, number>; }
interface HistogramAnswer {
  from: string | null; until: string | null; width: number; keys: string[]; buckets: Bucket[]; total: number;
  gaps?: Gap[]; complete?: boolean; not_read?: unknown[];
}
interface FacetValue { value: any; count: number; parameter: [string, string]; exclude: [string, string]; }
interface Facet { values: FacetValue[]; others: number; }
interface Completion { from: number; text: string; hint?: string; }
interface Column { name: string; kind: string; }
interface About {
  version: string; writable: boolean; may_annotate: boolean; live: boolean; store: string;
  first: string | null; last: string | null; columns: Column[]; objects: string[]; actions: string[];
}
interface Annotation { kind: string; text: string; author: string; time: string; }
interface Hit { id: string; title: string; level: string; explain?: string[] | string; }
interface EventAnswer { key: string; record: any; enrichments: any[]; hits: Hit[]; facts: Record<string, any>; }
interface TreeNode { id: string; parent: string | null; key?: string | null; time?: string; path: string; command?: string; user?: string; here: boolean; }
