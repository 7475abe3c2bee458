#include "bench/ways.hpp"

#include <llvm/ADT/DenseMap.h>
#include <llvm/ExecutionEngine/JITLink/JITLink.h>
#include <llvm/ExecutionEngine/JITLink/aarch64.h>
#include <llvm/ExecutionEngine/RuntimeDyld.h>
#include <llvm/ExecutionEngine/SectionMemoryManager.h>
#include <llvm/Object/ObjectFile.h>
#include <llvm/Support/Error.h>

#include <elf.h>
#include <utility>

namespace bench {

namespace {

namespace jitlink = llvm::jitlink;
using llvm::BitmaskEnumDetail::operator|; // of MemProt. NOLINT(misc-unused-using-decls): it is not seen
using vorna::wfta::kernel_data;
using vorna::wfta::kernel_registry_entry;
using vorna::wfta::kernel_registry_map;

llvm::ExitOnError exit_on_error("bench: ");

class jitlink_placement : public placement {
public:
    explicit jitlink_placement(const prepared_set& prepared) : prepared_(prepared) {}
    ~jitlink_placement() override { exit_on_error(memory.deallocate(std::move(allocation))); }
    jitlink_placement(const jitlink_placement&) = delete;
    jitlink_placement& operator=(const jitlink_placement&) = delete;

    kernel_registry_map registry() const override;

    jitlink::InProcessMemoryManager memory{4096};
    jitlink::JITLinkMemoryManager::FinalizedAlloc allocation;
    kernel_registry_map placed;              ///< without the data's addresses, for which no one asks
    std::vector<jitlink::Symbol*> anonymous; ///< each kernel's data in the graph; empty for an object
    std::vector<std::uint64_t> data;         ///< the addresses of `anonymous`, or of the symbol data_start

private:
    const prepared_set& prepared_;
};

kernel_registry_map jitlink_placement::registry() const
{
    std::vector<std::uint64_t> entries;
    for (const kernel_data& kernel : prepared_.set.kernels)
        entries.push_back(reinterpret_cast<std::uint64_t>(placed.at(kernel.name).text_ptr));
    kernel_registry_map registry = registry_of(prepared_, entries, data.front());
    if (!anonymous.empty()) {
        for (std::size_t i = 0; i < data.size(); ++i)
            registry.at(prepared_.set.kernels[i].name).data_ptr =
                reinterpret_cast<const std::uint8_t*>(data[i]);
    }
    return registry;
}

class context : public jitlink::JITLinkContext {
public:
    context(jitlink_placement& result, bool registers)
        : JITLinkContext(nullptr), result_(result), registers_(registers)
    {
    }

    jitlink::JITLinkMemoryManager& getMemoryManager() override { return result_.memory; }

    void notifyFailed(llvm::Error error) override { exit_on_error(std::move(error)); }

    void lookup(const LookupMap&,
                std::unique_ptr<jitlink::JITLinkAsyncLookupContinuation> continuation) override
    {
        continuation->run(jitlink::AsyncLookupResult()); // the kernels call nothing else
    }

    llvm::Error notifyResolved(jitlink::LinkGraph& graph) override
    {
        for (const jitlink::Symbol* symbol : graph.defined_symbols()) {
            if (registers_ && symbol->isCallable()) {
                result_.placed.emplace(symbol->getName().str(),
                                       kernel_registry_entry{symbol->getAddress().toPtr<std::uint8_t*>(),
                                                             symbol->getSize(), nullptr, 0});
            } else if (symbol->hasName() && symbol->getName() == "data_start") {
                result_.data.push_back(symbol->getAddress().getValue());
            }
        }
        for (const jitlink::Symbol* symbol : result_.anonymous)
            result_.data.push_back(symbol->getAddress().getValue());
        return llvm::Error::success();
    }

    void notifyFinalized(jitlink::JITLinkMemoryManager::FinalizedAlloc allocation) override
    {
        result_.allocation = std::move(allocation);
    }

private:
    jitlink_placement& result_;
    bool registers_; ///< the kernels, by name
};

llvm::ArrayRef<char> chars(const std::vector<std::uint8_t>& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

jitlink::Edge::Kind edge_kind(std::int32_t type)
{
    switch (type) {
    case R_AARCH64_ADR_PREL_LO21:
        return jitlink::aarch64::ADRLiteral21;
    case R_AARCH64_ADR_PREL_PG_HI21:
        return jitlink::aarch64::Page21;
    case R_AARCH64_ADD_ABS_LO12_NC:
        return jitlink::aarch64::PageOffset12;
    default:
        return jitlink::aarch64::Branch26PCRel;
    }
}

// A block for each text and each data, as a generator without an object format would pass them.
std::unique_ptr<placement> jitlink_graph(const prepared_set& prepared)
{
    auto result = std::make_unique<jitlink_placement>(prepared);
    const std::vector<kernel_data>& kernels = prepared.set.kernels;
    auto graph =
        std::make_unique<jitlink::LinkGraph>("kernels", llvm::Triple("aarch64-linux-gnu"), 8,
                                             llvm::endianness::little, jitlink::aarch64::getEdgeKindName);
    jitlink::Section& text =
        graph->createSection(".text", llvm::orc::MemProt::Read | llvm::orc::MemProt::Exec);
    jitlink::Section& rodata = graph->createSection(".rodata", llvm::orc::MemProt::Read);
    llvm::DenseMap<llvm::StringRef, jitlink::Symbol*> symbol_of(static_cast<unsigned>(kernels.size()));
    result->anonymous.reserve(kernels.size());
    for (const kernel_data& kernel : kernels) {
        jitlink::Block& code =
            graph->createContentBlock(text, chars(kernel.text), llvm::orc::ExecutorAddr(), 32, 0);
        symbol_of[kernel.name] =
            &graph->addDefinedSymbol(code, 0, kernel.name, kernel.text.size(), jitlink::Linkage::Strong,
                                     jitlink::Scope::Default, true, true);
        jitlink::Block& data =
            graph->createContentBlock(rodata, chars(kernel.data), llvm::orc::ExecutorAddr(), 1, 0);
        result->anonymous.push_back(&graph->addAnonymousSymbol(data, 0, kernel.data.size(), false, true));
        for (const tessjit::reloc_info& reloc : kernel.relocs) {
            const bool own_data = reloc.name.compare(0, 8, ".rodata.") == 0;
            code.addEdge(edge_kind(reloc.type), static_cast<jitlink::Edge::OffsetT>(reloc.offset),
                         own_data ? *result->anonymous.back() : *symbol_of.find(reloc.name)->second,
                         reloc.addend);
        }
    }
    auto link_context = std::make_unique<context>(*result, true);
    jitlink::link(std::move(graph), std::move(link_context));
    return result;
}

llvm::MemoryBufferRef buffer_of(const prepared_set& prepared)
{
    const llvm::ArrayRef<char> bytes = chars(prepared.object);
    return {llvm::StringRef(bytes.data(), bytes.size()), "kernels.o"};
}

template <bool registers>
std::unique_ptr<placement> jitlink_object(const prepared_set& prepared)
{
    auto result = std::make_unique<jitlink_placement>(prepared);
    auto graph = exit_on_error(jitlink::createLinkGraphFromObject(buffer_of(prepared)));
    jitlink::link(std::move(graph), std::make_unique<context>(*result, registers));
    return result;
}

class no_other_symbols : public llvm::LegacyJITSymbolResolver {
public:
    llvm::JITSymbol findSymbol(const std::string&) override { return nullptr; }
    llvm::JITSymbol findSymbolInLogicalDylib(const std::string&) override { return nullptr; }
};

class runtime_dyld_placement : public placement {
public:
    explicit runtime_dyld_placement(const prepared_set& prepared) : prepared_(prepared) {}

    kernel_registry_map registry() const override
    {
        std::vector<std::uint64_t> entries;
        for (const kernel_data& kernel : prepared_.set.kernels)
            entries.push_back(linker.getSymbol(kernel.name).getAddress());
        return registry_of(prepared_, entries, linker.getSymbol("data_start").getAddress());
    }

    llvm::SectionMemoryManager memory;
    no_other_symbols resolver;
    llvm::RuntimeDyld linker{memory, resolver};

private:
    const prepared_set& prepared_;
};

std::unique_ptr<placement> runtime_dyld(const prepared_set& prepared)
{
    auto result = std::make_unique<runtime_dyld_placement>(prepared);
    const auto object = exit_on_error(llvm::object::ObjectFile::createObjectFile(buffer_of(prepared)));
    result->linker.loadObject(*object);
    result->linker.finalizeWithMemoryManagerLocking();
    if (result->linker.hasError())
        exit_on_error(
            llvm::createStringError(llvm::inconvertibleErrorCode(), result->linker.getErrorString()));
    return result;
}

} // namespace

std::vector<way> llvm_ways()
{
    // RuntimeDyld encodes 12 of the 21 bits of an ADR: backward ones, as all are here, go wrong.
    return {{"JITLink, graph", jitlink_graph, way::all},
            {"JITLink, object", jitlink_object<true>, way::all},
            {"JITLink, object, no registry", jitlink_object<false>, way::nothing},
            {"RuntimeDyld", runtime_dyld, way::all_but_adr}};
}

} // namespace bench
