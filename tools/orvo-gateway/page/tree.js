// The content tree as the gateway offers it: requests, and the events of one queue.

export const Data = 1, Rows = 2, Value = 13;

export class Failure extends Error {
    constructor(status, record) {
        super(record.message || record.name || `status ${status}`);
        this.status = status;
        this.name = record.name;
    }
}

async function ask(url, body) {
    const options = body === undefined ? {} : {
        method: 'POST',
        headers: { 'Content-Type': 'application/json' },
        body: JSON.stringify(body),
    };
    const response = await fetch(url, options);
    const content = await response.json().catch(() => ({}));
    if (!response.ok)
        throw new Failure(response.status, content);
    return content;
}

function query(place, values) {
    return ask(`${place}?${new URLSearchParams(values)}`);
}

export async function getData(path, roles) {
    const { values } = await query('/api/getData', { path, roles: roles.join(',') });
    return Object.fromEntries(roles.map((role, i) => [role, values[i]]));
}

// The rows come as one object of roles each.
export async function getRows(path, fromRow, toRow, roles) {
    const answer = await query('/api/getRows', { path, fromRow, toRow, roles: roles.join(',') });
    answer.rows = (answer.rows || []).map(row => Object.fromEntries(roles.map((role, i) => [role, row[i]])));
    return answer;
}

export const setData = (path, role, value) => ask('/api/setData', { path, role, value }).then(answer => answer.value);
export const invoke = (path, value) => ask('/api/invoke', { path, value }).then(answer => answer.value);
export const start = () => ask('/start.json').then(answer => answer.path);

const pause = ms => new Promise(resolve => setTimeout(resolve, ms));
const key = ({ path, type }) => `${type} ${path}`;

// Watches what it is told to watch and calls onEvents(list) with what happened, or onLost() when something may have
// been missed: the gateway or the queue was gone, and all has to be read again.
export class Queue {
    constructor(onEvents, onLost) {
        this.onEvents = onEvents;
        this.onLost = onLost;
        this.id = '';
        this.watched = new Map();
        // Changes of the queue go out one after the other.
        this.busy = Promise.resolve();
        this.runs = false;
    }

    // Watches these and nothing else. What is read after this has no gap to the events.
    watch(wanted) {
        this.busy = this.busy.catch(() => {}).then(() => this.change(new Map(wanted.map(item => [key(item), item]))));
        return this.busy;
    }

    async change(wanted) {
        const without = (a, b) => [...a].filter(([name]) => !b.has(name)).map(([, item]) => item);
        const subscribes = without(wanted, this.watched);
        const unsubscribes = without(this.watched, wanted);
        if (this.id && !subscribes.length && !unsubscribes.length)
            return;
        const body = { queueId: this.id, subscribes, unsubscribes };
        const { queueId, modified } = await ask('/api/event/modifyQueue', body);
        const isNew = queueId !== this.id;
        this.id = queueId;
        this.watched = wanted;
        // An expired queue was replaced by one that knows the last change alone.
        if (isNew && body.queueId || !modified)
            return this.renew();
        if (!this.runs)
            this.run();
    }

    async renew() {
        this.id = '';
        const wanted = this.watched;
        this.watched = new Map();
        await this.change(wanted);
    }

    async run() {
        this.runs = true;
        for (;;) {
            try {
                const { queueId, events } = await query('/api/event/pollQueue', { queueId: this.id, timeout: 60 });
                if (queueId === this.id && events.length)
                    this.onEvents(events);
            } catch (failure) {
                if (failure.status !== 404)
                    await pause(1000);
                await (this.busy = this.busy.catch(() => {}).then(() => this.renew())).then(this.onLost, () => {});
            }
        }
    }
}
