// Owners of what the public factories make.
#pragma once

#include <memory>

#include <velora/bq.h>
#include <velora/src384.h>
#include <velora/vsp.h>

template <class Factory>
struct DestroyedBy {
    template <class Interface>
    void operator()(Interface* object) const
    {
        Factory::Destroy(object);
    }
};

using EngineOwner = std::unique_ptr<Velora_VSP_Interface, DestroyedBy<Velora_VSP_Factory>>;
using FilterOwner = std::unique_ptr<Velora_BQ_Interface, DestroyedBy<Velora_BQ_Factory>>;
using ConverterOwner = std::unique_ptr<Velora_SRC384_Interface, DestroyedBy<Velora_SRC384_Factory>>;
