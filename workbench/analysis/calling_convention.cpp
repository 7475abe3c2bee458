#include "workbench/analysis/calling_convention.hpp"

namespace vorna::workbench {

static register_set registers(register_id first, register_id last)
{
    register_set made;
    for (unsigned r = first; r <= last; ++r)
        made.set(r);
    return made;
}

const register_set& given_registers()
{
    static const register_set given = argument_registers() | registers(general_register(29), link_register) |
                                      register_set().set(stack_pointer);
    return given;
}

const register_set& preserved_registers()
{
    static const register_set preserved = registers(general_register(19), general_register(29)) |
                                          registers(vector_register(8), vector_register(15)) |
                                          register_set().set(stack_pointer);
    return preserved;
}

const register_set& argument_registers()
{
    static const register_set arguments = registers(general_register(0), general_register(8)) |
                                          registers(vector_register(0), vector_register(7));
    return arguments;
}

} // namespace vorna::workbench
