// The official MCP TypeScript SDK's client, run against the companion: it starts the program
// over standard input and output, negotiates, lists the tools and makes the tool calls a plan
// gives, optionally declaring roots that it lists when the companion asks and changes as the
// plan says.
//   node sdk_client.mjs SDK_ROOT COMPANION PLAN_JSON
// PLAN_JSON: {"roots": [uri, ...] or null (no roots capability), "steps": [step, ...]} where a
// step is {"call": name, "arguments": {...}} or {"roots": [uri, ...]} (the roots change and the
// client says so).
// Prints one JSON object with what the client saw: the server, its capabilities, the tools, how
// many times roots were asked for, and each call's result in order; exits 1 when the client
// itself fails.
import { pathToFileURL } from "node:url";
import { join } from "node:path";

const [sdkRoot, companion, planText] = process.argv.slice(2);
const plan = JSON.parse(planText);
const sdk = join(sdkRoot, "node_modules", "@modelcontextprotocol", "sdk", "dist", "esm");
const { Client } = await import(pathToFileURL(join(sdk, "client", "index.js")).href);
const { StdioClientTransport } = await import(pathToFileURL(join(sdk, "client", "stdio.js")).href);
const { ListRootsRequestSchema } = await import(pathToFileURL(join(sdk, "types.js")).href);

const transport = new StdioClientTransport({
    command: companion,
    args: ["mcp"],
    env: { ...process.env },
    stderr: "inherit",
});
const hasRoots = Array.isArray(plan.roots);
const client = new Client(
    { name: "murmela-test", version: "1.0.0" },
    { capabilities: hasRoots ? { roots: { listChanged: true } } : {} },
);
let roots = hasRoots ? plan.roots : [];
let rootsAsked = 0;
if (hasRoots) {
    client.setRequestHandler(ListRootsRequestSchema, async () => {
        ++rootsAsked;
        return { roots: roots.map((uri, index) => ({ uri, name: `root ${index}` })) };
    });
}
await client.connect(transport);

const seen = {
    server: client.getServerVersion(),
    capabilities: client.getServerCapabilities(),
    results: [],
};
const listed = await client.listTools();
seen.tools = listed.tools.map((tool) => ({
    name: tool.name,
    description: tool.description,
    inputSchema: tool.inputSchema,
}));
for (const step of plan.steps) {
    if (step.roots) {
        roots = step.roots;
        await client.sendRootsListChanged();
    } else {
        seen.results.push(await client.callTool({ name: step.call, arguments: step.arguments }));
    }
}
seen.rootsAsked = rootsAsked;
await client.close();
console.log(JSON.stringify(seen));
